#pragma once

#include <string>

#include "Tavro/TvRTOp.h"
#include "Tavro/export.h"

// Stack instructions: values move between the stack and constants, parameters and columns. `CT` is the type
// of the value in the row or the stream, `ST` the type on the stack.
namespace Tavro::TvRT {

inline constexpr const char* stackOpsSource = "../src-includes/runtimeOperators/Tavro/TvRTStackOps.h";

#pragma pack(push, 1)

// Pushes a constant, which is never null. Its value stands in the stream; what a reference points at belongs
// to the context.
//   stack:  -> value
//   stream: handler, constant of type CT
template <typename CT, typename ST>
struct TAVRO_EXPORT PushCnstOp {
  typename StackValue<CT>::Stored value;

  static constexpr auto shape = declareOp<Types<CT, ST>, Types<>, Types<ST>>(
      "PushCnstOp", "CT, ST", "pushCnst<0>", OperandKind::Constant);

  // The value of a constant's text: numbers as strtoul and its kin take them with base 0, cut to the width;
  // true for what begins with t or T; addresses from their text forms.
  static CT makeConstantValue(Context& context, const std::string& text);

  len_t install(Context& context) const {
    return installInstruction(context, *this, stackOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Pushes a field of the parameter row, which is never null.
//   stack:  -> value
//   stream: handler, offset
template <typename CT, typename ST>
struct TAVRO_EXPORT PushParamOp {
  len_t offset;

  static constexpr auto shape = declareOp<Types<CT, ST>, Types<>, Types<ST>>(
      "PushParamOp", "CT, ST", "pushParam<0>", OperandKind::ParameterOffset);

  len_t install(Context& context) const {
    return installInstruction(context, *this, stackOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Pushes a field of a row; null when the row is.
//   stack:  -> value
//   stream: handler, row, column
template <typename CT, typename ST>
struct TAVRO_EXPORT PushColumnOp {
  len_t row;
  len_t column;

  static constexpr auto shape = declareOp<Types<CT, ST>, Types<>, Types<ST>>(
      "PushColumnOp", "CT, ST", "pushColumn<0>", OperandKind::RowSlot, OperandKind::Column);

  static StackValue<ST> getColumnValue(Context& context, len_t row, len_t column);

  len_t install(Context& context) const {
    return installInstruction(context, *this, stackOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Pops a value into a field of a row; the null flag is lost. Throws std::runtime_error on a null row, with
// the value gone from the stack.
//   stack:  value ->
//   stream: handler, row, column
template <typename CT, typename ST>
struct TAVRO_EXPORT PopColumnOp {
  len_t row;
  len_t column;

  static constexpr auto shape = declareOp<Types<CT, ST>, Types<ST>, Types<>>(
      "PopColumnOp", "CT, ST", "popColumn<0>", OperandKind::RowSlot, OperandKind::Column);

  static void setColumnValue(Context& context, len_t row, len_t column, const Moved<CT>& value);

  len_t install(Context& context) const {
    return installInstruction(context, *this, stackOpsSource, __LINE__);
  }
  bool follow(Context& context, const StackValue<ST>& popped, std::size_t& next) const;
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Drops an entry as wide as a `T`, which for narrow integers is not what the push instructions make.
//   stack:  value ->
//   stream: handler
template <typename T>
struct TAVRO_EXPORT DiscardOp {
  static constexpr auto shape = declareOp<Types<T>, Types<T>, Types<>>("DiscardOp", "T", "discard<0>");

  len_t install(Context& context) const {
    return installInstruction(context, *this, stackOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Exchanges the two topmost entries, both of type `T`.
//   stack:  a b -> b a
//   stream: handler
template <typename T>
struct TAVRO_EXPORT SwapOp {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<T, T>>("SwapOp", "T", "swap<0>");

  len_t install(Context& context) const {
    return installInstruction(context, *this, stackOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Exchanges the topmost entry, of type `T`, with the one below it, of type `U`.
//   stack:  u t -> t u
//   stream: handler
template <typename T, typename U>
struct TAVRO_EXPORT NSwapOp {
  static constexpr auto shape =
      declareOp<Types<T, U>, Types<T, U>, Types<T, U>>("NSwapOp", "T, U", "nswap<1,0>");

  len_t install(Context& context) const {
    return installInstruction(context, *this, stackOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// As PushParamOp, for an array.
//   stack:  -> array
//   stream: handler, offset
template <typename T>
struct TAVRO_EXPORT PushAryParamOp {
  len_t offset;

  static constexpr auto shape = declareOp<Types<T>, Types<>, Types<ArrayReference<T>>>(
      "PushAryParamOp", "T", "pushAryParam<0>", OperandKind::ParameterOffset);

  len_t install(Context& context) const {
    return installInstruction(context, *this, stackOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// As PushColumnOp, for an array.
//   stack:  -> array
//   stream: handler, row, column
template <typename T>
struct TAVRO_EXPORT PushAryColumnOp {
  len_t row;
  len_t column;

  static constexpr auto shape = declareOp<Types<T>, Types<>, Types<ArrayReference<T>>>(
      "PushAryColumnOp", "T", "pushAryColumn<0>", OperandKind::RowSlot, OperandKind::Column);

  static StackValue<ArrayReference<T>> getColumnValue(Context& context, len_t row, len_t column);

  len_t install(Context& context) const {
    return installInstruction(context, *this, stackOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// As PopColumnOp, for an array.
//   stack:  array ->
//   stream: handler, row, column
template <typename T>
struct TAVRO_EXPORT PopAryColumnOp {
  len_t row;
  len_t column;

  static constexpr auto shape = declareOp<Types<T>, Types<ArrayReference<T>>, Types<>>(
      "PopAryColumnOp", "T", "popAryColumn<0>", OperandKind::RowSlot, OperandKind::Column);

  static void setColumnValue(Context& context, len_t row, len_t column, const ArrayReference<T>& value);

  len_t install(Context& context) const {
    return installInstruction(context, *this, stackOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

#pragma pack(pop)

// The dispatchers: each installs the member of its family for a type code. Throws std::runtime_error with the
// dispatcher's signature and ": Invalid Operation" for a code without a member, before anything is appended.
class TAVRO_EXPORT StackOps {
 public:
  static void installPushCnstOp(Context& context, TavroTypes type, const std::string& text);
  static void installPushParamOp(Context& context, TavroTypes type, len_t offset);
  static void installPushColumnOp(Context& context, TavroTypes type, len_t row, len_t column);
  static void installPopColumnOp(Context& context, TavroTypes type, len_t row, len_t column);
  static void installDiscardOp(Context& context, TavroTypes type);
  static void installSwapOp(Context& context, TavroTypes type);
  // `first` is the deeper entry, `second` the topmost. Only numeric and bool entries can be exchanged.
  static void installNSwapOp(Context& context, TavroTypes first, TavroTypes second);
  static void installPushAryParamOp(Context& context, TavroTypes type, len_t offset);
  static void installPushAryColumnOp(Context& context, TavroTypes type, len_t row, len_t column);
  static void installPopAryColumnOp(Context& context, TavroTypes type, len_t row, len_t column);
  static void installIterInitOp(Context& context, TavroTypes type, len_t slot, len_t row, len_t column);
  static void installNextValueOp(Context& context, TavroTypes type, len_t slot, len_t row, len_t column);
  static void installCurValueOp(Context& context, TavroTypes type, len_t slot);
};

[[noreturn, gnu::cold]] TAVRO_EXPORT void throwNullRow();

// Stores a value, scalar or array, in a field of a row that must not be null.
template <typename Value>
inline void storeInRow(Context& context, len_t row, len_t column, const Value& value) {
  BaseRow& to = context.getRow(row);
  if (to.isNull()) [[unlikely]]
    throwNullRow();
  to.setColumn(column, value, context.fixedLength(row));
}

template <typename CT, typename ST>
inline StackValue<ST> PushColumnOp<CT, ST>::getColumnValue(Context& context, len_t row, len_t column) {
  const BaseRow& from = context.getRow(row);
  Moved<CT> value;
  from.getColumn(column, value);
  return {widen<CT>(value), from.isNull()};
}

template <typename T>
inline StackValue<ArrayReference<T>> PushAryColumnOp<T>::getColumnValue(Context& context, len_t row,
                                                                        len_t column) {
  const BaseRow& from = context.getRow(row);
  ArrayReference<T> value;
  from.getColumn(column, value);
  return {value, from.isNull()};
}

template <typename CT, typename ST>
inline void PopColumnOp<CT, ST>::setColumnValue(Context& context, len_t row, len_t column,
                                                const Moved<CT>& value) {
  storeInRow(context, row, column, value);
}

template <typename T>
inline void PopAryColumnOp<T>::setColumnValue(Context& context, len_t row, len_t column,
                                              const ArrayReference<T>& value) {
  storeInRow(context, row, column, value);
}

template <typename CT, typename ST>
template <Trace trace>
OpResult PushCnstOp<CT, ST>::op(Context& context) {
  const Operands<PushCnstOp, trace> operands(context);
  const StackValue<ST> value(widen<CT>(narrow<CT>(operands->value)), false);
  traceOp<trace>(stackOpsSource, __LINE__, writeName<PushCnstOp>, "( ", value, " )");
  context.stackR().push<trace>(value);
  operands.step();
  return OpOk;
}

// The work of the pushes from the parameter row: `Value` is read, `widened` goes on the stack.
template <typename Op, typename Value, Trace trace, typename Widen>
inline OpResult pushParameter(Context& context, const Widen& widened) {
  const Operands<Op, trace> operands(context);
  Value parameter;
  context.parameterRow().getColumn(operands->offset, parameter);
  const auto value = widened(parameter);
  traceOp<trace>(stackOpsSource, __LINE__, writeName<Op>, "( ", operands->offset, " ) = ", value);
  context.stackR().push<trace>(value);
  operands.step();
  return OpOk;
}

// The work of the pushes from a row.
template <typename Op, Trace trace>
inline OpResult pushField(Context& context) {
  const Operands<Op, trace> operands(context);
  using Entry = decltype(Op::getColumnValue(context, operands->row, operands->column));
  if constexpr (trace == Trace::Off)
    if (!context.hasRow(operands->row) || !context.stackR().hasRoomFor<Entry>()) [[unlikely]]
      return leftToTraced;
  const Entry value = Op::getColumnValue(context, operands->row, operands->column);
  traceOp<trace>(stackOpsSource, __LINE__, writeName<Op>, "( ", operands->row, ", ", operands->column,
                 " ) = ", value);
  context.stackR().push<trace>(value);
  operands.step();
  return OpOk;
}

// The work of the pops into a row: an entry of type `Entry` is popped, `narrowed` goes into the row.
template <typename Op, typename Entry, Trace trace, typename Narrow>
inline OpResult popField(Context& context, const Narrow& narrowed) {
  const Operands<Op, trace> operands(context);
  Stack& stack = context.stackR();
  if constexpr (trace == Trace::Off && isFixedColumn<std::decay_t<decltype(narrowed(Entry()))>>) {
    BaseRow* const to = context.ownRow(operands->row);
    if (to == nullptr || !stack.hasEntry()) [[unlikely]]
      return leftToTraced;
    const auto stored = stack.template pop<Entry, trace>().value;
    to->setOwnColumn(operands->column, narrowed(stored));
  } else {
    const StackValue<Entry> value = stack.template pop<Entry, trace>();
    traceOp<trace>(stackOpsSource, __LINE__, writeName<Op>, "( ", operands->row, ", ", operands->column,
                   " ) -->  ", value);
    const auto stored = value.value;
    Op::setColumnValue(context, operands->row, operands->column, narrowed(stored));
  }
  operands.step();
  return OpOk;
}

template <typename CT, typename ST>
template <Trace trace>
OpResult PushParamOp<CT, ST>::op(Context& context) {
  return pushParameter<PushParamOp, Moved<CT>, trace>(
      context, [](const Moved<CT>& value) { return StackValue<ST>(widen<CT>(value), false); });
}

template <typename T>
template <Trace trace>
OpResult PushAryParamOp<T>::op(Context& context) {
  using Array = ArrayReference<T>;
  return pushParameter<PushAryParamOp, Array, trace>(
      context, [](const Array& value) { return StackValue<Array>(value, false); });
}

template <typename CT, typename ST>
template <Trace trace>
OpResult PushColumnOp<CT, ST>::op(Context& context) {
  return pushField<PushColumnOp, trace>(context);
}

template <typename T>
template <Trace trace>
OpResult PushAryColumnOp<T>::op(Context& context) {
  return pushField<PushAryColumnOp, trace>(context);
}

template <typename CT, typename ST>
template <Trace trace>
OpResult PopColumnOp<CT, ST>::op(Context& context) {
  return popField<PopColumnOp, ST, trace>(context, [](const auto& value) { return narrow<CT>(value); });
}

template <typename CT, typename ST>
inline bool PopColumnOp<CT, ST>::follow(Context& context, const StackValue<ST>& popped, std::size_t&) const {
  BaseRow* const to = context.ownRow(row);
  if (to == nullptr) return false;
  const auto value = popped.value;
  to->setOwnColumn(column, narrow<CT>(value));
  return true;
}

template <typename T>
template <Trace trace>
OpResult PopAryColumnOp<T>::op(Context& context) {
  return popField<PopAryColumnOp, ArrayReference<T>, trace>(
      context, [](const ArrayReference<T>& value) { return value; });
}

template <typename T>
template <Trace trace>
OpResult DiscardOp<T>::op(Context& context) {
  const StackValue<T> value = context.stackR().template pop<T, trace>();
  traceOp<trace>(stackOpsSource, __LINE__, writeName<DiscardOp>, " = ", value);
  return OpOk;
}

// The common work of both exchanges. The trace names the topmost type alone.
template <typename T, typename U, Trace trace>
inline void swapTop(Context& context, const char* name, int line) {
  Stack& stack = context.stackR();
  const auto [top, next] = stack.popPair<T, U, trace>();
  traceOp<trace>(stackOpsSource, line, name, writeTypes<T>, "( ", top, ", ", next, " )");
  stack.push<trace>(top);
  stack.push<trace>(next);
}

template <typename T>
template <Trace trace>
OpResult SwapOp<T>::op(Context& context) {
  swapTop<T, T, trace>(context, shape.className, __LINE__);
  return OpOk;
}

template <typename T, typename U>
template <Trace trace>
OpResult NSwapOp<T, U>::op(Context& context) {
  swapTop<T, U, trace>(context, shape.className, __LINE__);
  return OpOk;
}

}  // namespace Tavro::TvRT
