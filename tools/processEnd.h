#pragma once

#include <functional>

namespace Tavro::Tool {

// Work to be done when the library ends the process by itself, through exit(), an assertion or the arithmetic
// trap, while the object lives. None of these strikes in the middle of what the work touches, so that it may
// do more than a signal handler otherwise could. What it throws is lost. Objects go in the reverse order of
// their making.
class AtProcessEnd {
 public:
  explicit AtProcessEnd(std::function<void()> work);
  AtProcessEnd(const AtProcessEnd&) = delete;
  AtProcessEnd& operator=(const AtProcessEnd&) = delete;
  ~AtProcessEnd();

 private:
  static void runAll();
  static void runAllOn(int signal);

  static AtProcessEnd* last_;
  std::function<void()> work_;
  AtProcessEnd* previous_;
};

}  // namespace Tavro::Tool
