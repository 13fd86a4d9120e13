#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "Tavro/TvRTCtrlOps.h"
#include "Tavro/TvRTStackOps.h"
#include "Tavro/export.h"

// Value iterators: an instruction binds an iterator slot of the context to an array column, others walk it
// one element at a time.
namespace Tavro::TvRT {

inline constexpr const char* valueIterSource = "../src-includes/runtimeOperators/Tavro/TvRTValueIter.h";

// What a context's iterator slot holds.
class TAVRO_EXPORT ValueIterBase {
 public:
  ValueIterBase() = default;
  ValueIterBase(const ValueIterBase&) = delete;
  ValueIterBase& operator=(const ValueIterBase&) = delete;
  virtual ~ValueIterBase() = default;

  // The signature of this very operation, which tells the element type.
  virtual std::string signature() = 0;
};

// A walk through an array of `T`. Holds a view, not a copy: it follows or dangles as the row's buffer does.
template <typename T>
class TAVRO_EXPORT ValueAryIter : public ValueIterBase {
 public:
  class __kelpoDebug : public Kelpo::DebugSupport {
   public:
    __kelpoDebug() : Kelpo::DebugSupport(getHandler()) {}
    static Kelpo::DebugHandler* getHandler() {
      static Kelpo::DebugHandler* const hdl = Kelpo::Platform::getDebugHandler("ValueAryIter");
      return hdl;
    }
  };

  explicit ValueAryIter(const ArrayReference<T>& values) : array(values) {}

  std::string signature() override {
    return "std::string Tavro::TvRT::ValueAryIter<T>::signature() [with T = " + Spelling<T>::text() +
           "; std::string = std::basic_string<char>]";
  }

  // Goes back to the first element.
  ValueAryIter* begin() {
    traceEntered("begin", __LINE__, "Tavro::TvRT::ValueAryIter<T>* Tavro::TvRT::ValueAryIter<T>::begin()");
    index = 0;
    return this;
  }

  bool atEnd() {
    traceEntered("atEnd", __LINE__, "bool Tavro::TvRT::ValueAryIter<T>::atEnd()");
    return isAtEnd();
  }

  // The element that comes next. Throws std::runtime_error at the end.
  T operator*() {
    constexpr const char* function = "T Tavro::TvRT::ValueAryIter<T>::operator*()";
    traceEntered("operator*", __LINE__, function);
    if (isAtEnd()) failAtEnd(function, "read");
    return array[index];
  }

  // Moves on. Throws std::runtime_error at the end.
  ValueAryIter* operator++() {
    constexpr const char* function =
        "Tavro::TvRT::ValueAryIter<T>* Tavro::TvRT::ValueAryIter<T>::operator++()";
    traceEntered("operator++", __LINE__, function);
    if (isAtEnd()) failAtEnd(function, "increment");
    ++index;
    return this;
  }

  // The element before the position. Throws std::runtime_error at the beginning.
  T lastValue() {
    if (index == 0) failAtBeginning("T Tavro::TvRT::ValueAryIter<T>::lastValue()");
    return array[index - 1U];
  }

 private:
  bool isAtEnd() const { return array.length() == 0 || index >= array.count(); }

  static std::string withType(const char* function) {
    return std::string(function) + " [with T = " + Spelling<T>::text() + "]";
  }
  [[noreturn, gnu::cold, gnu::noinline]] void failAtEnd(const char* function, const char* deed) const {
    throw std::runtime_error(withType(function) + " attempt to " + deed + " beyond end of array: size " +
                             std::to_string(array.count()) + " index " + std::to_string(index));
  }
  [[noreturn, gnu::cold, gnu::noinline]] void failAtBeginning(const char* function) const {
    throw std::runtime_error(withType(function) + " attempt to decrement beyond beginning of array, index " +
                             std::to_string(index));
  }
  void traceEntered(const char* name, int line, const char* function) const {
    Kelpo::trace(
        debug.handler(), traceDetail, valueIterSource, line, name,
        [function](std::ostream& text) { text << withType(function); }, " entered");
  }

  ArrayReference<T> array;
  len_t index = 0;
  __kelpoDebug debug;
};

#pragma pack(push, 1)

// Binds an iterator slot to an array column and stands before its first element; a null row has none. What
// the slot held before is deleted. Allocates.
//   stack:  -> (nothing)
//   stream: handler, iterator, row, column
template <typename T>
struct TAVRO_EXPORT IterInitOp {
  len_t slot;
  len_t row;
  len_t column;

  static constexpr auto shape = declareOp<Types<T>, Types<>, Types<>>(
      "IterInitOp", "T", "iterInit<0>", OperandKind::IteratorSlot, OperandKind::RowSlot, OperandKind::Column);

  len_t install(Context& context) const {
    return installInstruction(context, *this, valueIterSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Takes the next element, moves on and stores the element in a field; false, and nothing stored, at the end.
// The iterator has moved on when the store fails.
//   stack:  -> bool
//   stream: handler, iterator, row, column
template <typename T>
struct TAVRO_EXPORT NextValueOp {
  len_t slot;
  len_t row;
  len_t column;

  static constexpr auto shape =
      declareOp<Types<T>, Types<>, Types<bool>>("NextValueOp", "T", "nextValue<0>", OperandKind::IteratorSlot,
                                                OperandKind::RowSlot, OperandKind::Column);
  static constexpr OpTrait traits = handsOver;

  len_t install(Context& context) const {
    return installInstruction(context, *this, valueIterSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Pushes the element that the last nextValue delivered.
//   stack:  -> value
//   stream: handler, iterator
template <typename CT, typename ST>
struct TAVRO_EXPORT CurValueOp {
  len_t slot;

  static constexpr auto shape = declareOp<Types<CT, ST>, Types<>, Types<ST>>(
      "CurValueOp", "CT, ST", "curValue<0>", OperandKind::IteratorSlot);

  len_t install(Context& context) const {
    return installInstruction(context, *this, valueIterSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

#pragma pack(pop)

// The iterator of a slot. One over other elements is refused as a missing one is.
template <typename T>
inline ValueAryIter<T>& iteratorAt(Context& context, len_t slot) {
  auto* const iterator = dynamic_cast<ValueAryIter<T>*>(context.getValueAryIter(slot));
  if (iterator == nullptr) Context::throwNoIterator(slot);
  return *iterator;
}

template <typename T>
template <Trace trace>
OpResult IterInitOp<T>::op(Context& context) {
  const Operands<IterInitOp, trace> operands(context);
  traceOp<trace>(valueIterSource, __LINE__, "iterInitOp", writeTypes<T>, "( ", operands->slot, ", ",
                 operands->row, ", ", operands->column, " )");
  ArrayReference<T> array;
  context.getRow(operands->row).getColumn(operands->column, array);
  auto iterator = std::make_unique<ValueAryIter<T>>(array);
  context.setValueAryIter(operands->slot, iterator.get());
  iterator.release()->begin();
  operands.step();
  return OpOk;
}

template <typename T>
template <Trace trace>
OpResult NextValueOp<T>::op(Context& context) {
  const Operands<NextValueOp, trace> operands(context);
  ValueAryIter<T>& iterator = iteratorAt<T>(context, operands->slot);
  T value{};
  const StackValue<bool> result(!iterator.atEnd(), false);
  if (result.value != 0) {
    value = *iterator;
    ++iterator;
  }
  // Before the store: the element may be a view into the very row that the store moves.
  traceOp<trace>(valueIterSource, __LINE__, writeName<NextValueOp>, "( ", operands->slot, ", ", operands->row,
                 ", ", operands->column, " )  = ", StackValue<T>(value, false), ", ", result);
  if (result.value != 0)
    PopColumnOp<T, StackTypeOf<T>>::setColumnValue(context, operands->row, operands->column, value);
  return pushResult(context, operands, result, Branches());
}

template <typename CT, typename ST>
template <Trace trace>
OpResult CurValueOp<CT, ST>::op(Context& context) {
  const Operands<CurValueOp, trace> operands(context);
  const CT element = iteratorAt<CT>(context, operands->slot).lastValue();
  const StackValue<ST> value(widen<CT>(element), false);
  const auto writeTypePair = [](std::ostream& text) { writeTypeNames(text, nativeTypes<CT, ST>, ", "); };
  traceOp<trace>(valueIterSource, __LINE__, shape.className, writeTypePair, "( ", operands->slot,
                 " ) = ", value);
  context.stackR().push<trace>(value);
  operands.step();
  return OpOk;
}

}  // namespace Tavro::TvRT
