#pragma once

#include <type_traits>

#include "Tavro/TvRTCtrlOps.h"
#include "Tavro/TvRTOp.h"
#include "Tavro/TvRTStackOps.h"
#include "Tavro/export.h"

// Binary operators. Each pops the right operand, then the left one below it, and pushes one result; none has
// operands in the stream. A class says in `apply` what it computes of two values, and its frame says what
// becomes of nulls:
// - arithmetic: null and zero when either side is null, and nothing is computed;
// - bits and logic: computed on the bytes whatever the flags say, null when either side is;
// - comparisons: never null.
namespace Tavro::TvRT {

inline constexpr const char* binOpSource = "../src-includes/runtimeOperators/Tavro/TvRTBinOp.h";

// What takes the result of an operator.
template <typename Result>
constexpr auto followersOfResult() {
  if constexpr (std::is_same_v<Result, bool>)
    return Branches();
  else if constexpr (std::is_arithmetic_v<Result> && std::is_same_v<Result, StackTypeOf<Result>>)
    return Types<PopColumnOp<Result, Result>>();
  else
    return Types<>();
}

// Pop both sides, compute, trace under the name of `T`, push.
template <typename T, typename Left, typename Right, typename Result, Trace trace, typename Compute>
inline OpResult runBinOp(Context& context, const char* className, const Compute& compute) {
  Stack& stack = context.stackR();
  const std::size_t pc = context.istream().programCounter();
  if constexpr (trace == Trace::Off)
    if (!stack.hasPair<Right, Left>()) [[unlikely]]
      return leftToTraced;
  const auto [right, left] = stack.popPair<Right, Left, trace>();
  const StackValue<Result> result = compute(left, right);
  traceOp<trace>(binOpSource, __LINE__, className, writeTypes<T>, " ( ", left, ", ", right, " ) = ", result);
  if constexpr (trace == Trace::Off)
    if (handOver(followersOfResult<Result>(), context, pc, result)) [[likely]]
      return followed;
  stack.pushBack<trace>(result);
  return OpOk;
}

template <typename Op, typename T, Trace trace>
inline OpResult runArithmetic(Context& context) {
  return runBinOp<T, T, T, T, trace>(context, Op::shape.className,
                                     [](const StackValue<T>& l, const StackValue<T>& r) {
                                       if (l.isNull() || r.isNull()) [[unlikely]]
                                         return StackValue<T>(T(), true);
                                       return StackValue<T>(Op::apply(l.value, r.value), false);
                                     });
}

template <typename Op, typename T, Trace trace>
inline OpResult runLogic(Context& context) {
  return runBinOp<T, T, T, T, trace>(
      context, Op::shape.className, [](const StackValue<T>& l, const StackValue<T>& r) {
        return StackValue<T>(Op::apply(l.value, r.value), l.isNull() || r.isNull());
      });
}

// Equality: true when the values are equal and neither side is null.
template <typename T>
inline bool areEqual(const StackValue<T>& l, const StackValue<T>& r) {
  const auto left = l.value;
  const auto right = r.value;
  return left == right && !l.isNull() && !r.isNull();
}

template <typename Op, typename T, Trace trace>
inline OpResult runEquality(Context& context) {
  return runBinOp<T, T, T, bool, trace>(context, Op::shape.className,
                                        [](const StackValue<T>& l, const StackValue<T>& r) {
                                          return StackValue<bool>(Op::apply(areEqual(l, r)), false);
                                        });
}

// Orders: a null on either side decides by the left flag and by where nulls stand in the order.
template <typename Op, typename T, Trace trace>
inline OpResult runOrder(Context& context) {
  return runBinOp<T, T, T, bool, trace>(
      context, Op::shape.className, [&](const StackValue<T>& l, const StackValue<T>& r) {
        if (l.isNull() || r.isNull()) [[unlikely]]
          return StackValue<bool>((l.isNull() == context.nullsComeFirst()) == Op::isLess, false);
        const auto left = l.value;
        const auto right = r.value;
        return StackValue<bool>(Op::apply(left, right), false);
      });
}

// Two's complement arithmetic wraps around; the compiler promises that for unsigned numbers only.
template <typename T, typename Compute>
inline T wrapping(T l, T r, const Compute& compute) {
  if constexpr (std::is_same_v<T, long long>)
    return static_cast<T>(compute(static_cast<unsigned long long>(l), static_cast<unsigned long long>(r)));
  else
    return compute(l, r);
}

// Drops both sides and pushes nothing.
//   stack:  a b ->
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_noOperation {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<>>("tv_noOperation", "T", "dummy<0>");

  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    const auto [right, left] = context.stackR().popPair<T, T, trace>();
    traceOp<trace>(binOpSource, __LINE__, writeName<tv_noOperation>, " ( ", left, ", ", right, " )");
    return OpOk;
  }
};

// Sum.
//   stack:  a b -> a+b
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_plusOperation {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<T>>("tv_plusOperation", "T", "add<0>");
  static T apply(T l, T r) {
    return wrapping(l, r, [](auto a, auto b) { return a + b; });
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runArithmetic<tv_plusOperation, T, trace>(context);
  }
};

// Difference.
//   stack:  a b -> a-b
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_minusOperation {
  static constexpr auto shape =
      declareOp<Types<T>, Types<T, T>, Types<T>>("tv_minusOperation", "T", "sub<0>");
  static T apply(T l, T r) {
    return wrapping(l, r, [](auto a, auto b) { return a - b; });
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runArithmetic<tv_minusOperation, T, trace>(context);
  }
};

// Product.
//   stack:  a b -> a*b
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_mulOperation {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<T>>("tv_mulOperation", "T", "mul<0>");
  static T apply(T l, T r) {
    return wrapping(l, r, [](auto a, auto b) { return a * b; });
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runArithmetic<tv_mulOperation, T, trace>(context);
  }
};

// Quotient, truncated toward zero for integers. What an integer division by zero does is the processor's
// affair: as a rule the process receives its arithmetic trap.
//   stack:  a b -> a/b
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_divOperation {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<T>>("tv_divOperation", "T", "div<0>");
  __attribute__((no_sanitize("undefined"))) static T apply(T l, T r) { return l / r; }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runArithmetic<tv_divOperation, T, trace>(context);
  }
};

// Shift to the right by the low six bits of b; signed numbers shift in copies of the sign.
//   stack:  a b -> a>>b
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_shiftOperation {
  static constexpr auto shape =
      declareOp<Types<T>, Types<T, T>, Types<T>>("tv_shiftOperation", "T", "shift<0>");
  static T apply(T l, T r) { return l >> (r & 63); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runLogic<tv_shiftOperation, T, trace>(context);
  }
};

// Bitwise and.
//   stack:  a b -> a&b
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_bitAndOperation {
  static constexpr auto shape =
      declareOp<Types<T>, Types<T, T>, Types<T>>("tv_bitAndOperation", "T", "bitAnd<0>");
  static T apply(T l, T r) { return l & r; }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runLogic<tv_bitAndOperation, T, trace>(context);
  }
};

// Bitwise or.
//   stack:  a b -> a|b
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_bitOrOperation {
  static constexpr auto shape =
      declareOp<Types<T>, Types<T, T>, Types<T>>("tv_bitOrOperation", "T", "bitOr<0>");
  static T apply(T l, T r) { return l | r; }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runLogic<tv_bitOrOperation, T, trace>(context);
  }
};

// Logical and, on the value bytes: zero when a is zero, else b's byte as it stands.
//   stack:  a b -> a and b
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_boolAndOperation {
  static constexpr auto shape =
      declareOp<Types<T>, Types<T, T>, Types<T>>("tv_boolAndOperation", "T", "boolAnd");
  static unsigned char apply(unsigned char l, unsigned char r) { return l == 0 ? 0 : r; }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runLogic<tv_boolAndOperation, T, trace>(context);
  }
};

// Logical or, on the value bytes: one when a is not zero, else b's byte as it stands.
//   stack:  a b -> a or b
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_boolOrOperation {
  static constexpr auto shape =
      declareOp<Types<T>, Types<T, T>, Types<T>>("tv_boolOrOperation", "T", "boolOr");
  static unsigned char apply(unsigned char l, unsigned char r) { return l != 0 ? 1 : r; }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runLogic<tv_boolOrOperation, T, trace>(context);
  }
};

// Equal, and neither side null.
//   stack:  a b -> bool
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_eqOperation {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<bool>>("tv_eqOperation", "T", "eq<0>");
  static bool apply(bool equal) { return equal; }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runEquality<tv_eqOperation, T, trace>(context);
  }
};

// The negation of eq.
//   stack:  a b -> bool
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_neOperation {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<bool>>("tv_neOperation", "T", "ne<0>");
  static bool apply(bool equal) { return !equal; }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runEquality<tv_neOperation, T, trace>(context);
  }
};

// Less. With a null on either side: whether the left one is null.
//   stack:  a b -> bool
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_ltOperation {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<bool>>("tv_ltOperation", "T", "lt<0>");
  static constexpr bool isLess = true;
  template <typename Value>
  static bool apply(const Value& l, const Value& r) {
    return l < r;
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runOrder<tv_ltOperation, T, trace>(context);
  }
};

// Less or equal. With a null on either side: whether the left one is null.
//   stack:  a b -> bool
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_leOperation {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<bool>>("tv_leOperation", "T", "le<0>");
  static constexpr bool isLess = true;
  template <typename Value>
  static bool apply(const Value& l, const Value& r) {
    return l <= r;
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runOrder<tv_leOperation, T, trace>(context);
  }
};

// Greater. With a null on either side: whether the left one is not null.
//   stack:  a b -> bool
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_gtOperation {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<bool>>("tv_gtOperation", "T", "gt<0>");
  static constexpr bool isLess = false;
  template <typename Value>
  static bool apply(const Value& l, const Value& r) {
    return l > r;
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runOrder<tv_gtOperation, T, trace>(context);
  }
};

// Greater or equal. With a null on either side: whether the left one is not null.
//   stack:  a b -> bool
//   stream: handler
template <typename T>
struct TAVRO_EXPORT tv_geOperation {
  static constexpr auto shape = declareOp<Types<T>, Types<T, T>, Types<bool>>("tv_geOperation", "T", "ge<0>");
  static constexpr bool isLess = false;
  template <typename Value>
  static bool apply(const Value& l, const Value& r) {
    return l >= r;
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runOrder<tv_geOperation, T, trace>(context);
  }
};

// The frame of the operators on two arrays of `CT`: true becomes false when either side is null.
template <typename Op, typename CT, Trace trace>
inline OpResult runArrayTest(Context& context) {
  using Array = ArrayReference<CT>;
  return runBinOp<CT, Array, Array, bool, trace>(
      context, Op::shape.className, [](const StackValue<Array>& l, const StackValue<Array>& r) {
        const bool holds = Op::apply(l.value, r.value);
        return StackValue<bool>(holds && !l.isNull() && !r.isNull(), false);
      });
}

// Every element of b stands in a, as often as in b. Allocates.
//   stack:  array a, array b -> bool
//   stream: handler
template <typename CT, typename ST>
struct TAVRO_EXPORT tv_containsOperation {
  using Array = ArrayReference<CT>;
  static constexpr auto shape = declareOp<Types<CT, ST>, Types<Array, Array>, Types<bool>>(
      "tv_containsOperation", "CT, ST", "contains<0>");
  [[gnu::noinline]] static bool apply(const Array& l, const Array& r) { return l.contains(r); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runArrayTest<tv_containsOperation, CT, trace>(context);
  }
};

// At least one element stands in both. Allocates.
//   stack:  array a, array b -> bool
//   stream: handler
template <typename CT, typename ST>
struct TAVRO_EXPORT tv_intersectsOperation {
  using Array = ArrayReference<CT>;
  static constexpr auto shape = declareOp<Types<CT, ST>, Types<Array, Array>, Types<bool>>(
      "tv_intersectsOperation", "CT, ST", "intersects<0>");
  [[gnu::noinline]] static bool apply(const Array& l, const Array& r) { return l.intersects(r); }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runArrayTest<tv_intersectsOperation, CT, trace>(context);
  }
};

// Same count and equal elements.
//   stack:  array a, array b -> bool
//   stream: handler
template <typename CT, typename ST>
struct TAVRO_EXPORT tv_aryEqOperation {
  using Array = ArrayReference<CT>;
  static constexpr auto shape =
      declareOp<Types<CT, ST>, Types<Array, Array>, Types<bool>>("tv_aryEqOperation", "CT, ST", "aryEq<0>");
  static bool apply(const Array& l, const Array& r) { return l == r; }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runArrayTest<tv_aryEqOperation, CT, trace>(context);
  }
};

// The element, cut to the width of the array's elements, stands in the array; false when either is null.
//   stack:  array, element -> bool
//   stream: handler
template <typename CT, typename ST>
struct TAVRO_EXPORT tv_containsElementOperation {
  using Array = ArrayReference<CT>;
  static constexpr auto shape = declareOp<Types<CT, ST>, Types<ST, Array>, Types<bool>>(
      "tv_containsElementOperation", "CT, ST", "containsElement<0>");

  static bool apply(const Array& array, const CT& element) {
    const unsigned count = array.count();
    for (unsigned i = 0; i < count; ++i)
      if (array[i] == element) return true;
    return false;
  }
  template <Trace trace = Trace::On>
  static OpResult op(Context& context) {
    return runBinOp<CT, Array, ST, bool, trace>(
        context, shape.className, [](const StackValue<Array>& array, const StackValue<ST>& element) {
          const auto value = element.value;
          const bool found = apply(array.value, narrow<CT>(value));
          return StackValue<bool>(found && !array.isNull() && !element.isNull(), false);
        });
  }
};

// The table of binary operators over the operations of their category (0 to 20) and the type codes (0 to 18).
class TAVRO_EXPORT BinOpDispatch {
 public:
  static constexpr int opcodeCount = 21;
  static constexpr int typeCount = 19;

  // The handler of a combination, null when it does not exist. Neither argument is tested.
  static Handler fetchBinOp(int opcode, int type);
  // Runs the handler of a combination, which must exist, and tells whether its result was another than OpOk.
  static bool dispatchBinOp(int opcode, int type, Context& context);
  // Appends the handler of a combination. One that does not exist is reported on standard error and aborts
  // the process.
  static void installBinOp(Context& context, int opcode, int type);
};

}  // namespace Tavro::TvRT
