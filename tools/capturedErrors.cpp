#include "capturedErrors.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>

namespace Tavro::Tool {

namespace {

const std::stringbuf* active = nullptr;

}  // namespace

CapturedErrors::CapturedErrors() : former_(std::cerr.rdbuf(&taken_)) {
  [[maybe_unused]] static const int registered = std::atexit(release);
  active = &taken_;
  // abort() raises the signal where it is called, so the handler may read the buffer.
  std::signal(SIGABRT, [](int) { release(); });
}

CapturedErrors::~CapturedErrors() {
  active = nullptr;
  std::signal(SIGABRT, SIG_DFL);
  std::cerr.rdbuf(former_);
}

void CapturedErrors::release() {
  if (active == nullptr) return;
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, active->view().data(), active->view().size());
  active = nullptr;
}

}  // namespace Tavro::Tool
