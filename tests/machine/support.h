#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "../thrown.h"
#include "Tavro/TvRTContext.h"
#include "Tavro/TvRTLoader.h"
#include "Tavro/TvRTOp.h"
#include "Tavro/tvExceptions.h"

namespace Tavro::TvRT {

// Where a test may write a program: tests run at the same time, each in a process of its own.
inline std::string programPath() {
  return testing::TempDir() + "machineTest." + std::to_string(getpid()) + ".tva";
}

inline OwnedContext newContext() { return OwnedContext(new Context(getTavroDb())); }

// What a loader named "test" makes of a program text.
inline OwnedContext assemble(const std::string& text) {
  std::istringstream in(text);
  return OwnedContext(Loader(getTavroDb(), "test", {}).processFile(in));
}

// What the action writes to standard error or standard output.
template <typename Action>
std::string errorOutputOf(const Action& action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}
template <typename Action>
std::string outputOf(const Action& action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

// "CATEGORY:LEVEL SOURCE:LINE FUNCTION: text" without the line number.
inline std::string withoutLineNumber(std::string traceLine) {
  const std::size_t place = traceLine.find(' ');
  const std::size_t function = traceLine.find(' ', place + 1);
  if (function == std::string::npos) return traceLine;
  const std::size_t number = traceLine.rfind(':', function);
  return number == std::string::npos ? traceLine : traceLine.erase(number, function - number);
}

// The trace lines of the action with those levels of those categories on, less the source line numbers:
// "CATEGORY:LEVEL SOURCE FUNCTION: text".
template <typename Action>
std::vector<std::string> traceOf(std::initializer_list<std::pair<const char*, int>> levels,
                                 const Action& action) {
  for (const auto& [category, level] : levels)
    Kelpo::Platform::getDebugHandler(category)->levelIs(level, true);
  std::istringstream text(errorOutputOf(action));
  for (const auto& [category, level] : levels)
    Kelpo::Platform::getDebugHandler(category)->levelIs(level, false);
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(withoutLineNumber(line));
  return lines;
}

template <typename T>
void push(Context& context, const T& value, bool isNull = false) {
  context.stackR().push(StackValue<T>(value, isNull));
}

// What stands in the stream, one instruction a line: "OFFSET NAME OPERAND-BYTES-IN-HEX".
inline std::vector<std::string> listing(const Context& context) {
  std::vector<std::string> lines;
  for (len_t at = 0; at < context.maxLoc();) {
    HandlerNumber number;
    std::memcpy(&number, context.istream().at(at), sizeof number);
    const Describe describe = HandlerTable::describe(number);
    if (describe == nullptr) return {"no instruction at " + std::to_string(at)};
    const InstructionInfo info = describe();
    std::ostringstream line;
    line << at << " " << info.name() << (info.operandWidth == 0 ? "" : " ") << std::hex << std::setfill('0');
    at = static_cast<len_t>(at + IStream::handlerSlotWidth);
    for (len_t i = 0; i < info.operandWidth; ++i, ++at)
      line << std::setw(2) << unsigned{*context.istream().at(at)};
    lines.push_back(line.str());
  }
  return lines;
}

// An instruction of the tests, without operands, whose work is set by the test.
struct Probe {
  static inline std::function<OpResult(Context&)> work;

  static OpResult op(Context& context) { return work(context); }
  static constexpr auto shape = declareOp<Types<>, Types<>, Types<>>("Probe", "", "probe");
  static void install(Context& context) { appendHandler(context, &op, &describe<Probe>); }
};

using Lines = std::vector<std::string>;

}  // namespace Tavro::TvRT
