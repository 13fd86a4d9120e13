#include "Tavro/TvRTUnaryOps.h"

namespace Tavro::TvRT {

namespace {

// The numeric types by the form that they have on the stack.
enum class NumericGroup { Unsigned, Signed, Floating, None };

NumericGroup groupOf(TavroTypes type) {
  auto group = NumericGroup::None;
  withColumnType(type, [&]<typename CT>() {
    if constexpr (std::is_same_v<StackTypeOf<CT>, unsigned long long>)
      group = NumericGroup::Unsigned;
    else if constexpr (std::is_same_v<StackTypeOf<CT>, long long>)
      group = NumericGroup::Signed;
    else if constexpr (std::is_same_v<StackTypeOf<CT>, double>)
      group = NumericGroup::Floating;
  });
  return group;
}

template <typename T>
void installCoerceFrom(Context& context, NumericGroup to) {
  if constexpr (!std::is_same_v<T, unsigned long long>)
    if (to == NumericGroup::Unsigned) CoerceOp<T, unsigned long long>().install(context);
  if constexpr (!std::is_same_v<T, long long>)
    if (to == NumericGroup::Signed) CoerceOp<T, long long>().install(context);
  if constexpr (!std::is_same_v<T, double>)
    if (to == NumericGroup::Floating) CoerceOp<T, double>().install(context);
}

}  // namespace

void UnaryOps::installNotOp(Context& context) { NotOp().install(context); }

void UnaryOps::installUnaryMinusOp(Context& context, TavroTypes type) {
  const NumericGroup group = groupOf(type);
  requireMember(group == NumericGroup::Signed || group == NumericGroup::Floating,
                "UnaryOps::installUnaryMinusOp", "Tavro::TavroTypes");
  if (group == NumericGroup::Signed)
    UnaryMinusOp<long long>().install(context);
  else
    UnaryMinusOp<double>().install(context);
}

void UnaryOps::installCoerceOp(Context& context, TavroTypes from, TavroTypes to) {
  const NumericGroup source = groupOf(from);
  const NumericGroup target = groupOf(to);
  requireMember(source != NumericGroup::None && target != NumericGroup::None, "UnaryOps::installCoerceOp",
                "Tavro::TavroTypes, Tavro::TavroTypes");
  if (source == NumericGroup::Unsigned)
    installCoerceFrom<unsigned long long>(context, target);
  else if (source == NumericGroup::Signed)
    installCoerceFrom<long long>(context, target);
  else
    installCoerceFrom<double>(context, target);
}

}  // namespace Tavro::TvRT
