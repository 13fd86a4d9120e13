#pragma once

#include "Tavro/TvRTOp.h"
#include "Tavro/export.h"

// Unary instructions: each pops one entry and pushes one with the same null flag, computed whatever the flag
// says.
namespace Tavro::TvRT {

inline constexpr const char* unaryOpsSource = "../src-includes/runtimeOperators/Tavro/TvRTUnaryOps.h";

// Logical not: flips bit 0 of the value byte.
//   stack:  a -> not a
//   stream: handler
struct TAVRO_EXPORT NotOp {
  static constexpr auto shape = declareOp<Types<>, Types<bool>, Types<bool>>("NotOp", "", "not");

  len_t install(Context& context) const {
    return installInstruction(context, *this, unaryOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Negation; the most negative integer stays itself.
//   stack:  a -> -a
//   stream: handler
template <typename T>
struct TAVRO_EXPORT UnaryMinusOp {
  static constexpr auto shape = declareOp<Types<T>, Types<T>, Types<T>>("UnaryMinusOp", "T", "neg<0>");

  len_t install(Context& context) const {
    return installInstruction(context, *this, unaryOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// Conversion between the numeric stack types. Integers keep their 64 bits, floating numbers are truncated
// toward zero; one that does not fit gives what the processor gives.
//   stack:  a -> a as U
//   stream: handler
template <typename T, typename U>
struct TAVRO_EXPORT CoerceOp {
  static constexpr auto shape = declareOp<Types<T, U>, Types<T>, Types<U>>("CoerceOp", "T, U", "coerce<0,1>");

  len_t install(Context& context) const {
    return installInstruction(context, *this, unaryOpsSource, __LINE__);
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context);
};

// The dispatchers. Throw std::runtime_error with the dispatcher's signature and ": Invalid Operation" for
// types without a member, before anything is appended.
class TAVRO_EXPORT UnaryOps {
 public:
  static void installNotOp(Context& context);
  // Signed and floating types.
  static void installUnaryMinusOp(Context& context, TavroTypes type);
  // Numeric types. Types that are one on the stack need no conversion, and nothing is installed.
  static void installCoerceOp(Context& context, TavroTypes from, TavroTypes to);
};

// Pops an entry, computes of its value, traces "NAME<types>( entry ) = result", pushes.
template <typename T, typename U, Trace trace, typename Compute>
inline OpResult runUnaryOp(Context& context, const char* name, void (*types)(std::ostream&),
                           const Compute& compute) {
  Stack& stack = context.stackR();
  const StackValue<T> entry = stack.pop<T, trace>();
  const StackValue<U> result(compute(entry.value), entry.isNull());
  traceOp<trace>(unaryOpsSource, __LINE__, name, types, "( ", entry, " ) = ", result);
  stack.pushBack<trace>(result);
  return OpOk;
}

template <Trace trace>
OpResult NotOp::op(Context& context) {
  return runUnaryOp<bool, bool, trace>(context, "not", writeTypes<bool>, [](unsigned char value) {
    return static_cast<unsigned char>(value ^ 1U);
  });
}

template <typename T>
template <Trace trace>
OpResult UnaryMinusOp<T>::op(Context& context) {
  return runUnaryOp<T, T, trace>(context, "unaryMinus", writeTypes<T>, [](T value) -> T {
    // Negation of unsigned numbers wraps around.
    if constexpr (std::is_integral_v<T>)
      return static_cast<T>(0ULL - static_cast<unsigned long long>(value));
    else
      return -value;
  });
}

// 2 to the 63rd power and above does not fit the processor's signed conversion: it is reduced by that amount
// and gets the top bit back.
inline unsigned long long toUnsigned(double value) {
  constexpr double topBit = 9223372036854775808.0;
  if (value >= topBit)
    return static_cast<unsigned long long>(static_cast<long long>(value - topBit)) ^ (1ULL << 63);
  return static_cast<unsigned long long>(static_cast<long long>(value));
}

template <typename T, typename U>
template <Trace trace>
OpResult CoerceOp<T, U>::op(Context& context) {
  return runUnaryOp<T, U, trace>(context, shape.className, writeTypes<T, U>, [](T value) -> U {
    if constexpr (std::is_same_v<T, double> && std::is_same_v<U, unsigned long long>)
      return toUnsigned(value);
    else
      return static_cast<U>(value);
  });
}

}  // namespace Tavro::TvRT
