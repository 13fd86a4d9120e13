#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

#include "Tavro/export.h"

// The support library of the platform: the root of all exceptions and the debug handlers behind every trace.
namespace Kelpo {

// Root of the exception tree. `what()` is the message.
class TAVRO_EXPORT Exception : public std::exception {
 public:
  Exception(std::string message, bool /*expected*/) : message_(std::move(message)) {}
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
};

// Receives the trace lines of one category. Handlers live until the process ends and may be used from any
// thread; a level may be turned on or off at any time. It takes effect at the next trace site; in a running
// program, at its next instruction.
class TAVRO_EXPORT DebugHandler {
 public:
  explicit DebugHandler(std::string category) : category_(std::move(category)) {}
  DebugHandler(const DebugHandler&) = delete;
  DebugHandler& operator=(const DebugHandler&) = delete;
  virtual ~DebugHandler();

  // Makes sure that all lines so far have left the process.
  virtual void flush();

  // Delivers one line as "CATEGORY:LEVEL SOURCE:LINE FUNCTION: text" to standard error, never mixed with
  // another.
  virtual void log(std::stringstream& text, int level, const char* file, int line, const char* function);

  const std::string& category() const { return category_; }

  // Levels 0 to 31.
  bool isOn(int level) const { return ((mask() >> level) & 1U) != 0; }
  void levelIs(int level, bool on);
  // True while any level of any handler is on. One load at a fixed address, for those who pass many trace
  // sites and would rather ask once.
  static bool anyLevelOn() { return levelsOn_.load(std::memory_order_relaxed) != 0; }
  // True when any of the levels in `levels` (bit n for level n) is on.
  bool anyOn(std::uint32_t levels) const { return (mask() & levels) != 0; }

 private:
  std::uint32_t mask() const { return mask_.load(std::memory_order_relaxed); }

  // How many levels are on, over all handlers.
  static std::atomic<int> levelsOn_;

  std::atomic<std::uint32_t> mask_{0};
  std::string category_;
};

namespace Platform {
// The handler of a category, made at the first request. Never null; not owned by the caller.
TAVRO_EXPORT DebugHandler* getDebugHandler(const std::string& category);
}  // namespace Platform

// Base of the per-class debug objects: says where the traces of an object go.
class TAVRO_EXPORT DebugSupport {
 public:
  explicit DebugSupport(DebugHandler* handler, bool owned = false) : handler_(handler), owned_(owned) {}
  DebugSupport(const DebugSupport&) = delete;
  DebugSupport& operator=(const DebugSupport&) = delete;
  virtual ~DebugSupport() {
    if (owned_) delete handler_;
  }

  DebugHandler* handler() const { return handler_; }

 private:
  DebugHandler* handler_;
  bool owned_;
};

// Writes one part of a trace line: a callable that takes the stream is called with it, anything else is
// streamed.
template <typename Part>
void writePart(std::ostream& text, const Part& part) {
  if constexpr (std::is_invocable_v<const Part&, std::ostream&>)
    part(text);
  else
    text << part;
}

// One trace line while it is composed. Out of line, since there are thousands of sites.
class TAVRO_EXPORT TraceLine {
 public:
  TraceLine();
  TraceLine(const TraceLine&) = delete;
  TraceLine& operator=(const TraceLine&) = delete;
  ~TraceLine();

  std::ostream& text() { return text_; }
  void log(DebugHandler& handler, int level, const char* source, int line, const char* function);

 private:
  std::stringstream text_;
};

template <typename... Parts>
[[gnu::noinline, gnu::cold]] void writeTrace(DebugHandler& handler, int level, const char* source, int line,
                                             const char* function, Parts... parts) {
  TraceLine trace;
  (writePart(trace.text(), parts), ...);
  trace.log(handler, level, source, line, function);
}

// What the cold function of a trace site gets of a part: a copy. A type that does not travel in registers may
// have an overload of its own beside it, which gives something that does.
template <typename Part>
inline std::decay_t<const Part&> tracePart(const Part& part) {
  return part;
}

// One trace site. When the level is off this costs one test, and nothing is composed: what is dear to make is
// given as a callable that writes it. Most sites are on the path of an instruction, whose values must not
// have to stand in memory for the sake of a trace.
template <typename... Parts>
inline void trace(DebugHandler* handler, int level, const char* source, int line, const char* function,
                  const Parts&... parts) {
  if (handler->isOn(level)) [[unlikely]]
    writeTrace(*handler, level, source, line, function, tracePart(parts)...);
}

}  // namespace Kelpo
