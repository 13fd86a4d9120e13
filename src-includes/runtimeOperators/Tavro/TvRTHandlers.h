#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>

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

// What the work of an instruction without trace sites may say in place of a result, before it has done
// anything: that it would have to call what comes back, or to throw. The handler with trace sites does it
// then.
inline constexpr OpResult leftToTraced = static_cast<OpResult>(-1);
// That the next instruction has been carried out as well.
inline constexpr OpResult followed = static_cast<OpResult>(-2);

// Carries out one instruction. `pc` stands on its operands.
using Handler = OpResult (*)(Context&);

// What a plain handler leaves behind, in one register: its result, the offset at which the run goes on, and
// whether it does. With a result other than OpOk it does not, and the offset is that of the instruction.
class PlainOutcome {
 public:
  PlainOutcome(OpResult result, std::size_t pc, bool isRunning = true)
      : bits_(std::uint64_t{static_cast<std::uint32_t>(result)} << 32 | (isRunning ? 0U : ended) | pc) {}

  // A run that goes on is nothing but the offset.
  bool goesOn() const { return bits_ < ended; }
  // The same for an offset up to `last`.
  bool goesOnUpTo(std::size_t last) const { return bits_ <= last; }
  OpResult result() const { return static_cast<OpResult>(static_cast<std::int32_t>(bits_ >> 32)); }
  // Of a run that goes on.
  std::size_t pc() const { return static_cast<std::size_t>(bits_); }
  // Of a run that does not.
  len_t endedAt() const { return static_cast<len_t>(bits_); }

 private:
  static constexpr unsigned ended = 0x10000;

  std::uint64_t bits_;
};

// Carries out an instruction whose slot begins within the stream's capacity. `pc`, the offset of its
// operands, is handed over and the next one handed back: a value that has to come back from memory is what an
// instruction would wait for longest. In memory it is kept all the same. It is as wide as an address, of
// which it becomes a part.
using PlainHandler = PlainOutcome (*)(Context&, std::size_t pc);

// The two handlers of an instruction, which do the same: one with trace sites, and one without them, which
// runs while no level is on.
struct TAVRO_EXPORT Handlers {
  constexpr Handlers() = default;
  constexpr Handlers(Handler with, PlainHandler without) : traced(with), plain(without) {}
  // An instruction with one handler, which runs at all times.
  constexpr Handlers(Handler handler) : Handlers(handler, &runTraced) {}

  Handler traced = nullptr;
  PlainHandler plain = nullptr;

  // Runs the traced handler of the instruction with operands at `pc`.
  static PlainOutcome runTraced(Context& context, std::size_t pc);
};

// What stands in the handler slot of an instruction: an index into the table of handlers, counted from
// HandlerTable::base.
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
struct TAVRO_EXPORT InstructionInfo {
  const char* className;
  const char* parameters;                 // how signatures name the type arguments, as in "CT, ST"
  const char* statement;                  // of the assembly language, with numbers of type arguments
  std::span<const NativeType> arguments;  // the type arguments
  len_t operandWidth;                     // bytes behind the handler slot
  std::span<const OperandKind> operands;
  std::span<const StackEntry> pops;    // topmost first
  std::span<const StackEntry> pushes;  // in order of pushing

  // The statement with its types, as in "pushColumn<uint8_t>".
  std::string statementText() const;
  // Class with its type arguments, as in "PushColumnOp<uint8_t,uint64_t>".
  std::string name() const;
  // The full signature of the class's `install`, as traces show it.
  std::string installSignature() const;
};
using Describe = InstructionInfo (*)();

// The process-wide table of handlers. Every number that was not given out belongs to a handler that throws
// TvOutOfRange with "no instruction at istream offset " and the offset. The table never moves.
class TAVRO_EXPORT HandlerTable {
 public:
  static constexpr HandlerNumber capacity = 4096;
  // Operands are small numbers, their complements, text and real numbers. What a run that was led astray
  // fetches out of them is none of the numbers from here.
  static constexpr HandlerNumber base = 0xB5E90000;

  // The number of an instruction, given out at the first request. Throws std::length_error when the table is
  // full.
  static HandlerNumber numberOf(const Handlers& handlers, Describe describe);

  // What is known of the instruction behind a number; null when the number was not given out.
  static Describe describe(HandlerNumber number);

  static Handler at(HandlerNumber number) { return traced[indexOf(number)]; }
  // Carries out the instruction of that number, with operands at `pc`. A number outside of the table
  // branches, which is predicted: a choice of the entry would be waited for.
  static PlainOutcome runPlain(HandlerNumber number, Context& context, std::size_t pc) {
    const HandlerNumber index = number - base;
    if (index >= capacity) [[unlikely]]
      return Handlers::runTraced(context, pc);
    return plain[index](context, pc);
  }

 private:
  // Entry 0 is that of the numbers that were not given out.
  static constexpr std::size_t indexOf(HandlerNumber number) {
    const HandlerNumber index = number - base;
    return index < capacity ? index : 0;
  }

  static std::array<Handler, capacity> traced;
  // Read for every instruction, by the library's own run loop alone: not by way of its table of symbols.
  [[gnu::visibility("hidden")]] static std::array<PlainHandler, capacity> plain;
};

// A list of types.
template <typename... T>
struct Types {};

template <typename T>
inline constexpr StackEntry stackEntry{nativeType<T>.code, false};
template <typename T>
inline constexpr StackEntry stackEntry<ArrayReference<T>>{nativeType<T>.code, true};

template <typename... T>
inline constexpr std::array<StackEntry, sizeof...(T)> stackEntries{stackEntry<T>...};
template <typename... T>
inline constexpr std::array<NativeType, sizeof...(T)> nativeTypes{nativeType<T>...};

template <typename... T>
constexpr std::span<const StackEntry> stackEntriesOf(Types<T...>) {
  return stackEntries<T...>;
}
template <typename... T>
constexpr std::span<const NativeType> nativeTypesOf(Types<T...>) {
  return nativeTypes<T...>;
}

// "<uint8_t,uint64_t>", or nothing for no types.
TAVRO_EXPORT void writeTypeNames(std::ostream& text, std::span<const NativeType> types,
                                 const char* separator);

}  // namespace Tavro::TvRT
