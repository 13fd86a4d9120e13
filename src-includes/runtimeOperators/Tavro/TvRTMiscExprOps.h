#pragma once

#include <cstddef>
#include <cstdint>

#include "Tavro/TvRTOp.h"
#include "Tavro/export.h"

// Instructions that fit no family: a choice between two values, hashing, and ranges of addresses.
namespace Tavro::TvRT {

inline constexpr const char* miscExprOpsSource = "../src-includes/runtimeOperators/Tavro/TvRTMiscExprOps.h";

// The arithmetic of hashes: 32 bits everywhere, so that hashes are the same on every target.
inline constexpr std::uint32_t hashMix = 0x9e3779b9;
inline constexpr std::uint32_t combineHash(std::uint32_t state, std::uint32_t value) {
  return state ^ (value + hashMix + (state << 6) + (state >> 2));
}
// The 32-bit byte hash of the standard library, with its default seed.
TAVRO_EXPORT std::uint32_t hashBytes(const void* bytes, std::size_t length);
// Combines bytes one by one.
TAVRO_EXPORT std::uint32_t combineBytes(const unsigned char* bytes, std::size_t length);

// Picks the deeper value when the condition's byte is not zero, else the topmost; each keeps its null flag.
// Steps one byte although it has no operands, so the next instruction is fetched from its second byte on.
//   stack:  a condition b -> a or b
//   stream: handler
template <typename T>
struct TAVRO_EXPORT CondExprOp {
  static constexpr auto shape =
      declareOp<Types<T>, Types<T, bool, T>, Types<T>>("CondExprOp", "T", "condExpr<0>");
  static constexpr OpTrait traits = movesCounter;

  len_t install(Context& context) const {
    return installInstruction(context, *this, miscExprOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Folds a value into a running hash, whose low 32 bits count; null when either is null, and computed all the
// same.
//   stack:  hash value -> hash
//   stream: handler
template <typename T>
struct TAVRO_EXPORT HashOp {
  static constexpr auto shape =
      declareOp<Types<T>, Types<T, unsigned long long>, Types<unsigned long long>>("HashOp", "T", "hash<0>");

  // The hash of the value alone.
  static std::uint32_t hashOf(const typename StackValue<T>::Stored& value);

  len_t install(Context& context) const {
    return installInstruction(context, *this, miscExprOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

#pragma pack(push, 1)

// Tells whether one of two general prefixes contains the other.
//   stack:  -> bool
//   stream: handler, row, column, row, column
struct TAVRO_EXPORT OverlapsOp {
  len_t row;
  len_t column;
  len_t otherRow;
  len_t otherColumn;

  static constexpr auto shape = declareOp<Types<>, Types<>, Types<bool>>(
      "OverlapsOp", "", "overlaps", OperandKind::RowSlot, OperandKind::Column, OperandKind::RowSlot,
      OperandKind::Column);

  len_t install(Context& context) const {
    return installInstruction(context, *this, miscExprOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Makes a general prefix one bit shorter and stores it in both fields; false, and nothing stored, when it has
// no bits left.
//   stack:  -> bool
//   stream: handler, row, column, to row, to column
struct TAVRO_EXPORT StepLessOp {
  len_t row;
  len_t column;
  len_t toRow;
  len_t toColumn;

  static constexpr auto shape = declareOp<Types<>, Types<>, Types<bool>>(
      "StepLessOp", "", "stepLess", OperandKind::RowSlot, OperandKind::Column, OperandKind::RowSlot,
      OperandKind::Column);

  len_t install(Context& context) const {
    return installInstruction(context, *this, miscExprOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

#pragma pack(pop)

// The dispatchers: each installs the member of its family for a type code. Throws std::runtime_error with the
// dispatcher's signature and ": Invalid Operation" for a code without a member, before anything is appended.
class TAVRO_EXPORT MiscExprOps {
 public:
  static void installCondExprOp(Context& context, TavroTypes type);
  static void installHashOp(Context& context, TavroTypes type);
};

template <typename T>
template <Trace trace>
OpResult CondExprOp<T>::op(Context& context) {
  Stack& stack = context.stackR();
  const auto [ifFalse, condition] = stack.popPair<T, bool, trace>();
  const StackValue<T> ifTrue = stack.pop<T, trace>();
  stack.pushBack<trace>(condition.value != 0 ? ifTrue : ifFalse);
  context.stepPC(1);
  return OpOk;
}

template <typename T>
std::uint32_t HashOp<T>::hashOf(const typename StackValue<T>::Stored& value) {
  if constexpr (std::is_integral_v<T>) {
    return static_cast<std::uint32_t>(value);
  } else if constexpr (std::is_same_v<T, double>) {
    // Both zeros are one value.
    return value == 0.0 ? 0 : hashBytes(&value, sizeof value);
  } else if constexpr (std::is_same_v<T, StringValueReference>) {
    return hashBytes(value.bytes(), value.length());
  } else if constexpr (std::is_same_v<T, IpAddr>) {
    return value.number();
  } else if constexpr (std::is_same_v<T, Ip6Addr>) {
    const auto word = [&](std::size_t i) {
      const unsigned char* const b = value.bytes() + 4 * i;
      return std::uint32_t{b[0]} << 24 | std::uint32_t{b[1]} << 16 | std::uint32_t{b[2]} << 8 | b[3];
    };
    return combineHash(combineHash(combineHash(word(0), word(1)), word(2)), word(3));
  } else {
    const unsigned addressBytes = addressLength(value.family());
    if (addressBytes == 0) return 0;
    const std::uint32_t address = combineBytes(value.bytes(), addressBytes);
    if constexpr (std::is_same_v<T, IpGenPrefixReference>)
      return combineHash(value.mask() + hashMix, address);
    else
      return address;
  }
}

template <typename T>
template <Trace trace>
OpResult HashOp<T>::op(Context& context) {
  Stack& stack = context.stackR();
  const auto [value, seed] = stack.popPair<T, unsigned long long, trace>();
  const auto hashed = value.value;
  const StackValue<unsigned long long> result(
      combineHash(static_cast<std::uint32_t>(seed.value), hashOf(hashed)), value.isNull() || seed.isNull());
  stack.pushBack<trace>(result);
  traceOp<trace>(miscExprOpsSource, __LINE__, writeName<HashOp>, "( ", value, ", ", seed, " ) = ", result);
  return OpOk;
}

inline IpGenPrefix prefixAt(Context& context, len_t row, len_t column) {
  IpGenPrefix prefix;
  context.getRow(row).getColumn(column, prefix);
  return prefix;
}

inline void storePrefix(Context& context, len_t row, len_t column, const IpGenPrefix& prefix) {
  BaseRow& to = context.getRow(row);
  to.setColumn(column, prefix, context.fixedLength(row));
}

template <Trace trace>
OpResult OverlapsOp::op(Context& context) {
  const Operands<OverlapsOp, trace> operands(context);
  const IpGenPrefix a = prefixAt(context, operands->row, operands->column);
  const IpGenPrefix b = prefixAt(context, operands->otherRow, operands->otherColumn);
  const StackValue<bool> result(a.mask() < b.mask() ? a.contains(b) : b.contains(a), false);
  context.stackR().push<trace>(result);
  traceOp<trace>(miscExprOpsSource, __LINE__,
                 "static Tavro::TvRT::OpResult Tavro::TvRT::OverlapsOp::op(Tavro::TvRT::Context&)", a, " & ",
                 b, " --> ", result);
  operands.step();
  return OpOk;
}

template <Trace trace>
OpResult StepLessOp::op(Context& context) {
  const Operands<StepLessOp, trace> operands(context);
  const IpGenPrefix before = prefixAt(context, operands->row, operands->column);
  IpGenPrefix after = before;
  const StackValue<bool> result(before.mask() != 0, false);
  if (result.value != 0) {
    const auto mask = static_cast<unsigned short>(before.mask() - 1);
    after.clearLowerAddrBits(mask);
    after.maskIs(mask);
    storePrefix(context, operands->row, operands->column, after);
    storePrefix(context, operands->toRow, operands->toColumn, after);
  }
  context.stackR().push<trace>(result);
  traceOp<trace>(miscExprOpsSource, __LINE__,
                 "static Tavro::TvRT::OpResult Tavro::TvRT::StepLessOp::op(Tavro::TvRT::Context&)", before,
                 " --> ", after, " --> ", result);
  operands.step();
  return OpOk;
}

}  // namespace Tavro::TvRT
