#pragma once

#include <array>
#include <string>
#include <vector>

#include "Tavro/TvRTTypes.h"
#include "Tavro/export.h"
#include "Tavro/types.h"

namespace Tavro::TvRT {

class Context;

// What an instruction handler tells the run loop.
enum OpResult : int {
  OpOk = 0,       // done; the run goes on
  OpFailed = 1,   // failed; the run ends
  OpSuspend = 2,  // could not complete now and runs again after `resume`; the run ends
};

// Carries out one instruction.
using Handler = OpResult (*)(Context&);

// What stands in the handler slot of an instruction: an index into the table of handlers.
using HandlerNumber = unsigned int;

// What an operand field means.
enum class OperandKind : unsigned char {
  RowSlot,
  Column,
  Index,
  ParameterOffset,
  IteratorSlot,
  Label,
  Constant,
  Unused
};

// The type of a value on the stack.
struct StackEntry {
  TavroTypes type;
  bool isArray;
};

// What is known of an instruction, derived from the declarations in its class.
struct InstructionInfo {
  std::string name;    // class with its type arguments, as in "PushColumnOp<uint8_t,uint64_t>"
  len_t operandWidth;  // bytes behind the handler slot
  std::vector<OperandKind> operands;
  std::vector<StackEntry> pops;    // topmost first
  std::vector<StackEntry> pushes;  // in order of pushing
};
using Describe = InstructionInfo (*)();

// The process-wide table of handlers. Number 0 and every number that was not given out belong to a handler
// that throws TvOutOfRange with "no instruction at istream offset " and the offset. The table never moves.
class TAVRO_EXPORT HandlerTable {
 public:
  static constexpr HandlerNumber capacity = 4096;

  // The number of a handler, given out at the first request. Throws std::length_error when the table is full.
  static HandlerNumber numberOf(Handler handler, Describe describe);

  // What is known of the instruction behind a number; null when the number was not given out.
  static Describe describe(HandlerNumber number);

  static Handler at(HandlerNumber number) { return handlers[number < capacity ? number : 0]; }

 private:
  static std::array<Handler, capacity> handlers;
};

// A list of types.
template <typename... T>
struct Types {};

template <typename T>
inline constexpr StackEntry stackEntry{nativeType<T>.code, false};
template <typename T>
inline constexpr StackEntry stackEntry<ArrayReference<T>>{nativeType<T>.code, true};

template <typename... T>
std::vector<StackEntry> stackEntries(Types<T...>) {
  return {stackEntry<T>...};
}

// The type arguments of an instruction as its name shows them, "" for none.
template <typename... T>
std::string typeArguments(Types<T...>, const char* separator = ",") {
  std::string text;
  ((text += (text.empty() ? "<" : separator) + TvRTTypename<T>()), ...);
  return text.empty() ? text : text + ">";
}

}  // namespace Tavro::TvRT
