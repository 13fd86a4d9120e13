#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

namespace Tavro::Tool {

// One line on a terminal that says what a long piece of work is at. It appears when the work has taken half a
// second, from a thread of its own, and is gone when the object goes.
class Progress {
 public:
  // Nothing is ever shown unless `shown`.
  explicit Progress(bool shown);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  // What is being done from now on, with a count that begins at 0.
  void stageIs(const std::string& stage);
  void countIs(std::size_t rows) { rows_.store(rows, std::memory_order_relaxed); }

 private:
  void show();

  std::atomic<std::size_t> rows_{0};
  std::mutex mutex_;
  std::condition_variable change_;
  std::string stage_;
  bool ended_ = false;
  std::thread thread_;
};

}  // namespace Tavro::Tool
