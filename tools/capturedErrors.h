#pragma once

#include <sstream>
#include <streambuf>
#include <string>

#include "processEnd.h"

namespace Tavro::Tool {

// Takes what std::cerr is given while the object lives; one at a time. When the process ends meanwhile, what
// has been taken goes to standard error after all.
class CapturedErrors {
 public:
  CapturedErrors();
  CapturedErrors(const CapturedErrors&) = delete;
  CapturedErrors& operator=(const CapturedErrors&) = delete;
  ~CapturedErrors();

  std::string text() const { return taken_.str(); }

 private:
  void release();

  std::stringbuf taken_;
  std::streambuf* former_;
  AtProcessEnd atProcessEnd_{[this] { release(); }};
};

}  // namespace Tavro::Tool
