#include "processEnd.h"

#include <csignal>
#include <cstdlib>
#include <utility>

namespace Tavro::Tool {

AtProcessEnd* AtProcessEnd::last_ = nullptr;

AtProcessEnd::AtProcessEnd(std::function<void()> work)
    : work_(std::move(work)), previous_(std::exchange(last_, this)) {
  [[maybe_unused]] static const int registered = std::atexit(runAll);
  std::signal(SIGABRT, runAllOn);
  std::signal(SIGFPE, runAllOn);
}

AtProcessEnd::~AtProcessEnd() { last_ = previous_; }

void AtProcessEnd::runAll() {
  while (last_ != nullptr) {
    const AtProcessEnd& ending = *std::exchange(last_, last_->previous_);
    try {
      ending.work_();
    } catch (...) {
      continue;
    }
  }
}

// The process ends by the same signal once the handler is left.
void AtProcessEnd::runAllOn(int signal) {
  std::signal(signal, SIG_DFL);
  runAll();
}

}  // namespace Tavro::Tool
