#pragma once

#include <array>
#include <cstring>
#include <iomanip>
#include <limits>
#include <stdexcept>
#include <string>

#include "Tavro/TvRTContext.h"
#include "Tavro/TvRTDebug.h"
#include "Tavro/TvRTHandlers.h"
#include "Tavro/TvRTTypes.h"

// How an instruction is made. It is a small plain class with no base, no virtual operation and no state:
// - its operands are its data members, packed, in the order of the operand block;
// - `install` writes the object's bytes behind the number of its handler;
// - the static `op` is the handler; it reads the same bytes back, does the work and steps over them. It is a
//   template on whether it holds trace sites, and hands that on to all that it does;
// - `shape` declares what traces and listings show of it.
namespace Tavro::TvRT {

// What is declared of an instruction class: its name, its type arguments with the names that signatures give
// them ("CT, ST"), the statement that installs it with the number of the argument for each of its types
// ("nswap<1,0>"), the meaning of each data member, and what it pops, topmost first, and pushes.
template <typename Arguments, typename Pops, typename Pushes, std::size_t OperandCount>
struct OpShape {
  const char* className;
  const char* parameters;
  const char* statement;
  std::array<OperandKind, OperandCount> operands;

  // Of a shape that is a static member; the result refers to it.
  constexpr InstructionInfo info(len_t operandWidth) const {
    return {className,
            parameters,
            statement,
            nativeTypesOf(Arguments()),
            operandWidth,
            operands,
            stackEntriesOf(Pops()),
            stackEntriesOf(Pushes())};
  }
};

template <typename Arguments, typename Pops, typename Pushes, typename... Kinds>
constexpr auto declareOp(const char* className, const char* parameters, const char* statement,
                         Kinds... operands) {
  return OpShape<Arguments, Pops, Pushes, sizeof...(Kinds)>{className, parameters, statement, {operands...}};
}

// The object of an instruction without operands has no bytes in the stream.
template <typename Op>
inline constexpr len_t operandWidth = Op::shape.operands.empty() ? len_t{0} : static_cast<len_t>(sizeof(Op));

template <typename Op>
InstructionInfo describe() {
  return Op::shape.info(operandWidth<Op>);
}

// Parts of trace lines: "PushColumnOp<uint8_t,uint64_t>" and "<uint8_t,uint64_t>".
template <typename Op>
void writeName(std::ostream& text) {
  text << describe<Op>().name();
}
template <typename... T>
void writeTypes(std::ostream& text) {
  writeTypeNames(text, nativeTypes<T...>, ",");
}

// Offset that stands for the operand block of an instruction without one.
inline constexpr len_t noOperandBlock = 65535;

// What a class may say of itself, in a member `traits`. The handlers without trace sites go by it.
enum OpTrait : unsigned {
  movesCounter = 1,  // moves `pc`, although it has no operands to step over
  endsRun = 2,       // may end the run, and steps over nothing
  handsOver = 4,     // ends with pushResult, which asks itself whether a slot follows
  callsClients = 8,  // tables call what a client wrote, which may halt the run or turn a level on
};
template <typename Op>
constexpr bool has(OpTrait trait) {
  if constexpr (requires { Op::traits; })
    return (Op::traits & trait) != 0;
  else
    return false;
}

// The handler of an instruction class without its trace sites. Where no handler slot would follow, which is
// reported, and where `op` says so, the other one does the work: so what is often run calls nothing that
// comes back, and saves no register for it.
template <typename Op>
[[gnu::flatten]] PlainOutcome runPlain(Context& context, std::size_t pc) {
  IStream& stream = context.istream();
  constexpr bool hasOperands = operandWidth<Op> != 0;
  if constexpr (hasOperands && !has<Op>(endsRun) && !has<Op>(handsOver))
    if (!stream.hasSlotAt(pc + operandWidth<Op>)) [[unlikely]]
      return Handlers::runTraced(context, pc);
  if (pc > std::numeric_limits<len_t>::max() - operandWidth<Op>) __builtin_unreachable();
  stream.programCounterIs(pc);
  const OpResult result = Op::template op<Trace::Off>(context);
  if (result == leftToTraced) [[unlikely]]
    return Handlers::runTraced(context, pc);
  if (result != OpOk && result != followed) [[unlikely]]
    return {result, stream.counter() - IStream::handlerSlotWidth};
  const bool hasMoved = hasOperands || has<Op>(movesCounter) || result == followed;
  const std::size_t next = hasMoved ? stream.counter() : pc;
  if ((has<Op>(endsRun) || has<Op>(callsClients)) && !context.isRunning()) [[unlikely]]
    return {OpOk, next, false};
  return {OpOk, next};
}

// Both handlers of an instruction class.
template <typename Op>
inline constexpr Handlers handlersOf{&Op::template op<Trace::On>, &runPlain<Op>};

// The number of an instruction class, asked for once.
template <typename Op>
HandlerNumber handlerNumber() {
  static const HandlerNumber number = HandlerTable::numberOf(handlersOf<Op>, &describe<Op>);
  return number;
}

// The same for a class that is looked for behind others: given out before anything runs, so that no bytes are
// taken for it.
template <typename Op>
[[gnu::visibility("hidden")]] inline const HandlerNumber followerNumber = handlerNumber<Op>();

inline void appendHandler(Context& context, HandlerNumber number) {
  context.append(IStream::handlerSlotWidth, reinterpret_cast<const unsigned char*>(&number));
}

inline void appendHandler(Context& context, const Handlers& handlers, Describe describeOp) {
  appendHandler(context, HandlerTable::numberOf(handlers, describeOp));
}

// Writes the instruction to the end of the stream and returns the offset of its operand block.
template <typename Op>
len_t installInstruction(Context& context, const Op& instruction, const char* source, int line) {
  static_assert(operandWidth<Op> <= IStream::widestOperands);
  appendHandler(context, handlerNumber<Op>());
  len_t offset = noOperandBlock;
  if constexpr (operandWidth<Op> != 0)
    offset = context.append(operandWidth<Op>, reinterpret_cast<const unsigned char*>(&instruction));
  const auto writeSignature = [](std::ostream& text) { text << describe<Op>().installSignature(); };
  Kelpo::trace(tvRtOpKelpoDebugHandler_, traceDetail, source, line, "install", writeSignature,
               " installing at ", std::setw(4), offset);
  return offset;
}

// The operands of a running instruction: a copy of its object, out of the stream. `pc` is read once here and
// written once by `step`.
template <typename Op, Trace trace>
class Operands {
 public:
  explicit Operands(Context& context) : stream_(context.istream()), pc_(stream_.programCounter()) {
    std::memcpy(static_cast<void*>(&operands_), bytes(), sizeof(Op));
  }

  const Op* operator->() const { return &operands_; }

  // The offset behind the operands.
  std::size_t next() const { return pc_ + operandWidth<Op>; }

  // Moves `pc` behind the operands. A plain handler runs only where a slot follows.
  void step() const {
    if constexpr (trace == Trace::Off && !has<Op>(handsOver))
      stream_.programCounterIs(pc_ + operandWidth<Op>);
    else
      stream_.stepFrom(pc_, operandWidth<Op>);
  }

  // The operand bytes in the stream, for an instruction that rewrites them.
  unsigned char* bytes() const { return stream_.operandsAt<trace>(pc_); }

 private:
  IStream& stream_;
  std::size_t pc_;
  Op operands_;
};

// As a rule the next instruction takes what one has computed: a branch the outcome of a comparison, a pop
// into a row a sum. Without trace sites the first carries the second out as well, with the value at hand.
// That saves a turn of the run loop, and the value a trip through memory; stack, rows and `pc` are left as
// the two leave them one by one. No level can have been turned on in between.
//
// What can follow so has a member
//
//   bool follow(Context&, const StackValue<Value>& popped, std::size_t& next) const
//
// that does the work and makes `next` the offset to go on at, which is behind the instruction before. Where
// anything about it is rare, it returns false, with nothing done.
template <typename Follower, typename Value>
inline bool handOverTo(Context& context, std::size_t pc, const StackValue<Value>& result) {
  IStream& stream = context.istream();
  const std::size_t operands = pc + IStream::handlerSlotWidth;
  std::size_t next = operands + operandWidth<Follower>;
  if (stream.plainNumberAt(pc) != followerNumber<Follower>) [[unlikely]]
    return false;
  if (!stream.hasSlotAt(next)) [[unlikely]]
    return false;
  Follower follower;
  std::memcpy(static_cast<void*>(&follower), stream.operandsAt<Trace::Off>(operands), sizeof follower);
  if (!follower.follow(context, result, next)) [[unlikely]]
    return false;
  stream.programCounterIs(next);
  return true;
}

// Hands a result over to the instruction at `pc`, if it is one of those. The result could be pushed on the
// stack, where it leaves its bytes, and popped.
template <typename... Followers, typename Value>
inline bool handOver(Types<Followers...>, Context& context, [[maybe_unused]] std::size_t pc,
                     const StackValue<Value>& result) {
  context.stackR().leaveBehindTop(result);
  return (handOverTo<Followers>(context, pc, result) || ...);
}

// Ends an instruction with operands: pushes its result and steps over them.
template <typename Op, Trace trace, typename Followers, typename Value>
inline OpResult pushResult(Context& context, const Operands<Op, trace>& operands,
                           const StackValue<Value>& result, Followers followers) {
  Stack& stack = context.stackR();
  if constexpr (trace == Trace::Off)
    if (stack.canPushAndPop<StackValue<Value>>()) [[likely]]
      if (handOver(followers, context, operands.next(), result)) [[likely]]
        return followed;
  stack.push<trace>(result);
  operands.step();
  return OpOk;
}

// Ends a dispatcher whose family has no member for a type: throws std::runtime_error with the dispatcher's
// full signature, made of its name and its arguments behind the context, and ": Invalid Operation".
inline void requireMember(bool known, const char* dispatcher, const char* arguments) {
  if (!known)
    throw std::runtime_error("static void Tavro::TvRT::" + std::string(dispatcher) +
                             "(Tavro::TvRT::Context&, " + arguments + "): Invalid Operation");
}

}  // namespace Tavro::TvRT
