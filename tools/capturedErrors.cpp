#include "capturedErrors.h"

#include <iostream>

namespace Tavro::Tool {

CapturedErrors::CapturedErrors() : former_(std::cerr.rdbuf(&taken_)) {}

CapturedErrors::~CapturedErrors() { std::cerr.rdbuf(former_); }

void CapturedErrors::release() {
  std::cerr.rdbuf(former_);
  std::cerr << taken_.view() << std::flush;
}

}  // namespace Tavro::Tool
