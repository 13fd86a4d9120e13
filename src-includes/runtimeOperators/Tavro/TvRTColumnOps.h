#pragma once

#include "Tavro/TvRTCtrlOps.h"
#include "Tavro/TvRTOp.h"
#include "Tavro/export.h"

// Column instructions: they work on two fields of rows without passing values over the stack. All have the
// same operands, the first field's row and column and the second's. `T` is the column type, at its own width.
namespace Tavro::TvRT {

inline constexpr const char* columnOpsSource = "../src-includes/runtimeOperators/Tavro/TvRTColumnOps.h";

#pragma pack(push, 1)

// Stores the first field in the second. A null source stores the type's null value; a null destination throws
// TvNullRow.
//   stack:  -> (nothing)
//   stream: handler, row, column, to row, to column
template <typename T>
struct TAVRO_EXPORT CopyColumnOp {
  len_t row;
  len_t column;
  len_t toRow;
  len_t toColumn;

  static constexpr auto shape =
      declareOp<Types<T>, Types<>, Types<>>("CopyColumnOp", "T", "copyColumn<0>", OperandKind::RowSlot,
                                            OperandKind::Column, OperandKind::RowSlot, OperandKind::Column);

  len_t install(Context& context) const {
    return installInstruction(context, *this, columnOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// As CopyColumnOp, for an array.
//   stack:  -> (nothing)
//   stream: handler, row, column, to row, to column
template <typename T>
struct TAVRO_EXPORT CopyAryColumnOp {
  len_t row;
  len_t column;
  len_t toRow;
  len_t toColumn;

  static constexpr auto shape =
      declareOp<Types<T>, Types<>, Types<>>("CopyAryColumnOp", "T", "copyAryColumn<0>", OperandKind::RowSlot,
                                            OperandKind::Column, OperandKind::RowSlot, OperandKind::Column);

  len_t install(Context& context) const {
    return installInstruction(context, *this, columnOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Tells whether two fields are equal; false when either row is null.
//   stack:  -> bool
//   stream: handler, row, column, row, column
template <typename T>
struct TAVRO_EXPORT EqualColumnOp {
  len_t row;
  len_t column;
  len_t otherRow;
  len_t otherColumn;

  static constexpr auto shape = declareOp<Types<T>, Types<>, Types<bool>>(
      "EqualColumnOp", "T", "equalColumn<0>", OperandKind::RowSlot, OperandKind::Column, OperandKind::RowSlot,
      OperandKind::Column);
  static constexpr OpTrait traits = handsOver;

  len_t install(Context& context) const {
    return installInstruction(context, *this, columnOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// As EqualColumnOp, for arrays.
//   stack:  -> bool
//   stream: handler, row, column, row, column
template <typename T>
struct TAVRO_EXPORT EqualAryColumnOp {
  len_t row;
  len_t column;
  len_t otherRow;
  len_t otherColumn;

  static constexpr auto shape = declareOp<Types<T>, Types<>, Types<bool>>(
      "EqualAryColumnOp", "T", "equalAryColumn<0>", OperandKind::RowSlot, OperandKind::Column,
      OperandKind::RowSlot, OperandKind::Column);
  static constexpr OpTrait traits = handsOver;

  len_t install(Context& context) const {
    return installInstruction(context, *this, columnOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Compares two fields: -1 when the first is less, 0 when they are equal, 1 otherwise, which takes in every
// comparison with a not-a-number. A null row comes first.
//   stack:  -> three-way result
//   stream: handler, row, column, row, column
template <typename T>
struct TAVRO_EXPORT CompareColumnOp {
  len_t row;
  len_t column;
  len_t otherRow;
  len_t otherColumn;

  static constexpr auto shape = declareOp<Types<T>, Types<>, Types<signed char>>(
      "CompareColumnOp", "T", "compareColumn<0>", OperandKind::RowSlot, OperandKind::Column,
      OperandKind::RowSlot, OperandKind::Column);
  static constexpr OpTrait traits = handsOver;

  len_t install(Context& context) const {
    return installInstruction(context, *this, columnOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

#pragma pack(pop)

// The dispatchers: each installs the member of its family for a type code. Throws std::runtime_error with the
// dispatcher's signature and ": Invalid Operation" for a code without a member, before anything is appended.
class TAVRO_EXPORT ColumnOps {
 public:
  static void installCopyColumnOp(Context& context, TavroTypes type, len_t row, len_t column, len_t toRow,
                                  len_t toColumn);
  static void installCopyAryColumnOp(Context& context, TavroTypes type, len_t row, len_t column, len_t toRow,
                                     len_t toColumn);
  static void installEqualColumnOp(Context& context, TavroTypes type, len_t row, len_t column, len_t otherRow,
                                   len_t otherColumn);
  static void installEqualAryColumnOp(Context& context, TavroTypes type, len_t row, len_t column,
                                      len_t otherRow, len_t otherColumn);
  static void installCompareColumnOp(Context& context, TavroTypes type, len_t row, len_t column,
                                     len_t otherRow, len_t otherColumn);
};

// The work of both copies, on values of type `Value`.
template <typename Op, typename Value, Trace trace>
inline OpResult copyField(Context& context, void (*traceCopy)(const Op&, const Value&)) {
  const Operands<Op, trace> operands(context);
  Value value{};
  if constexpr (trace == Trace::Off && isFixedColumn<Value>) {
    BaseRow* const to = context.ownRow(operands->toRow);
    if (to == nullptr || !context.hasRow(operands->row)) [[unlikely]]
      return leftToTraced;
    context.getRow(operands->row).getColumn(operands->column, value);
    to->setOwnColumn(operands->toColumn, value);
  } else {
    context.getRow(operands->row).getColumn(operands->column, value);
    traceCopy(*operands.operator->(), value);
    const len_t fixedLength = context.fixedLength(operands->toRow);
    context.getRow(operands->toRow).setColumn(operands->toColumn, value, fixedLength);
  }
  operands.step();
  return OpOk;
}

template <typename T>
template <Trace trace>
OpResult CopyColumnOp<T>::op(Context& context) {
  return copyField<CopyColumnOp, Moved<T>, trace>(context, [](const CopyColumnOp& o, const Moved<T>& value) {
    traceOp<trace>(columnOpsSource, __LINE__, "CopyColumnOp", writeTypes<T>, "( ", o.row, ", ", o.column,
                   ", ", o.toRow, ", ", o.toColumn, " ) --> ", StackValue<T>(value, false));
  });
}

// Traces under the name of its scalar twin, without a value.
template <typename T>
template <Trace trace>
OpResult CopyAryColumnOp<T>::op(Context& context) {
  return copyField<CopyAryColumnOp, ArrayReference<T>, trace>(
      context, [](const CopyAryColumnOp& o, const ArrayReference<T>&) {
        traceOp<trace>(columnOpsSource, __LINE__, "CopyColumnOp", writeTypes<T>, "( ", o.row, ", ", o.column,
                       ", ", o.toRow, ", ", o.toColumn, " )");
      });
}

// The work of the comparisons, on values of type `Value`: reads both fields, asks `compare(first,
// firstIsNull, second, secondIsNull)`, traces, and pushes a `Result`.
template <typename Op, typename T, typename Value, typename Result, Trace trace, typename Compare>
inline OpResult compareFields(Context& context, const char* name, const char* sign, const Compare& compare) {
  const Operands<Op, trace> operands(context);
  if constexpr (trace == Trace::Off)
    if (!context.hasRow(operands->row) || !context.hasRow(operands->otherRow) ||
        !context.stackR().canPushAndPop<StackValue<Result>>()) [[unlikely]]
      return leftToTraced;
  const BaseRow& firstRow = context.getRow(operands->row);
  const BaseRow& secondRow = context.getRow(operands->otherRow);
  Value first{};
  Value second{};
  firstRow.getColumn(operands->column, first);
  secondRow.getColumn(operands->otherColumn, second);
  const StackValue<Result> result(compare(first, firstRow.isNull(), second, secondRow.isNull()), false);
  traceOp<trace>(columnOpsSource, __LINE__, name, writeTypes<T>, "( ", operands->row, ", ", operands->column,
                 ", ", operands->otherRow, ", ", operands->otherColumn, " ) = ( ",
                 StackValue<Value>(first, false), sign, StackValue<Value>(second, false), " ) = ", result);
  using Followers = std::conditional_t<std::is_same_v<Result, bool>, Branches, Types<compareBranchOp>>;
  return pushResult(context, operands, result, Followers());
}

template <typename Value>
inline bool fieldsEqual(const Value& first, bool firstIsNull, const Value& second, bool secondIsNull) {
  return !secondIsNull && !firstIsNull && first == second;
}

template <typename T>
template <Trace trace>
OpResult EqualColumnOp<T>::op(Context& context) {
  return compareFields<EqualColumnOp, T, T, bool, trace>(context, "EqualColumnOp", " == ", fieldsEqual<T>);
}

// Traces under the name of its scalar twin.
template <typename T>
template <Trace trace>
OpResult EqualAryColumnOp<T>::op(Context& context) {
  return compareFields<EqualAryColumnOp, T, ArrayReference<T>, bool, trace>(
      context, "EqualColumnOp", " == ", fieldsEqual<ArrayReference<T>>);
}

template <typename T>
template <Trace trace>
OpResult CompareColumnOp<T>::op(Context& context) {
  const auto compare = [&](const T& first, bool firstIsNull, const T& second,
                           bool secondIsNull) -> signed char {
    constexpr signed char less = -1;
    constexpr signed char greater = 1;
    if (firstIsNull) return context.nullsComeFirst() ? less : greater;
    if (secondIsNull) return context.nullsComeFirst() ? greater : less;
    // Without a jump, which would be mispredicted often, where both comparisons are cheap.
    if constexpr (std::is_arithmetic_v<T>)
      return static_cast<signed char>(!(first <= second) - (first < second));
    if (first < second) return less;
    return first == second ? 0 : greater;
  };
  return compareFields<CompareColumnOp, T, T, signed char, trace>(context, "CompareColumnOp", " vs ",
                                                                  compare);
}

}  // namespace Tavro::TvRT
