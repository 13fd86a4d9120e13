#include "progress.h"

#include <chrono>
#include <cstdio>

namespace Tavro::Tool {

namespace {

using namespace std::chrono_literals;

constexpr auto delay = 500ms;
constexpr auto interval = 100ms;
constexpr const char* clearLine = "\r\033[K";

}  // namespace

Progress::Progress(bool shown) {
  if (shown) thread_ = std::thread([this] { show(); });
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }
  change_.notify_one();
  thread_.join();
}

void Progress::stageIs(const std::string& stage) {
  const std::lock_guard lock(mutex_);
  stage_ = stage;
  countIs(0);
}

void Progress::show() {
  std::unique_lock lock(mutex_);
  const auto isEnded = [this] { return ended_; };
  if (change_.wait_for(lock, delay, isEnded)) return;
  do {
    std::fprintf(stderr, "%stvop: %s: %zu rows", clearLine, stage_.c_str(),
                 rows_.load(std::memory_order_relaxed));
  } while (!change_.wait_for(lock, interval, isEnded));
  std::fputs(clearLine, stderr);
}

}  // namespace Tavro::Tool
