#include "Tavro/TvRTStackOps.h"

#include <cstdlib>

namespace Tavro::TvRT {

namespace {

// A constant that is a view needs a row to point into: one slot and the payload.
constexpr len_t constantRowLength = tv_contentOffset + variableSlotWidth;

template <typename Reference, typename Owner>
Reference keepInRow(Context& context, const Owner& value) {
  BaseRow row(constantRowLength);
  row.setColumn(tv_contentOffset, value, constantRowLength);
  Reference view;
  row.getColumn(tv_contentOffset, view);
  context.keepConstant(row);
  return view;
}

// Integers are read with 64 bits and cut to their width, whatever the width of `long` is.
template <typename CT>
CT constantValue(Context& context, const std::string& text) {
  const char* const begin = text.c_str();
  if constexpr (std::is_same_v<CT, bool>)
    return (*begin & ~0x20) == 'T';
  else if constexpr (std::is_floating_point_v<CT>)
    return static_cast<CT>(std::strtod(begin, nullptr));
  else if constexpr (std::is_integral_v<CT> && std::is_unsigned_v<CT>)
    return static_cast<CT>(std::strtoull(begin, nullptr, 0));
  else if constexpr (std::is_integral_v<CT>)
    return static_cast<CT>(std::strtoll(begin, nullptr, 0));
  else if constexpr (std::is_same_v<CT, StringValueReference>)
    return keepInRow<CT>(context, text);
  else if constexpr (std::is_same_v<CT, IpGenAddrReference>)
    return keepInRow<CT>(context, IpGenAddr(text));
  else if constexpr (std::is_same_v<CT, IpGenPrefixReference>)
    return keepInRow<CT>(context, IpGenPrefix(text));
  else
    return CT(text);
}

// The two widths that an entry can have in an exchange.
enum class EntryKind { Numeric, Bool, Other };

EntryKind entryKind(TavroTypes type) {
  constexpr unsigned numericTypes = 0x63ff;
  constexpr unsigned boolType = 0x400;
  if (type < 0 || type >= TypeIpAddr) return EntryKind::Other;
  const unsigned bit = 1U << type;
  if ((bit & numericTypes) != 0) return EntryKind::Numeric;
  return (bit & boolType) != 0 ? EntryKind::Bool : EntryKind::Other;
}

}  // namespace

void throwNullRow() { throw std::runtime_error("setting column in NULL row"); }

template <typename CT, typename ST>
CT PushCnstOp<CT, ST>::makeConstantValue(Context& context, const std::string& text) {
  return constantValue<CT>(context, text);
}

void StackOps::installPushCnstOp(Context& context, TavroTypes type, const std::string& text) {
  const bool known = withColumnType(type, [&]<typename CT>() {
    using Op = PushCnstOp<CT, StackTypeOf<CT>>;
    Op{Op::makeConstantValue(context, text)}.install(context);
  });
  requireMember(known, "StackOps::installPushCnstOp", "Tavro::TavroTypes, const string&");
}

void StackOps::installPushParamOp(Context& context, TavroTypes type, len_t offset) {
  const bool known =
      withColumnType(type, [&]<typename CT>() { PushParamOp<CT, StackTypeOf<CT>>{offset}.install(context); });
  requireMember(known, "StackOps::installPushParamOp", "Tavro::TavroTypes, Tavro::len_t");
}

void StackOps::installPushColumnOp(Context& context, TavroTypes type, len_t row, len_t column) {
  const bool known = withColumnType(type, [&]<typename CT>() {
    PushColumnOp<CT, StackTypeOf<CT>>{row, column}.install(context);
  });
  requireMember(known, "StackOps::installPushColumnOp", "Tavro::TavroTypes, Tavro::len_t, Tavro::len_t");
}

void StackOps::installPopColumnOp(Context& context, TavroTypes type, len_t row, len_t column) {
  const bool known = withColumnType(type, [&]<typename CT>() {
    PopColumnOp<CT, StackTypeOf<CT>>{row, column}.install(context);
  });
  requireMember(known, "StackOps::installPopColumnOp", "Tavro::TavroTypes, Tavro::len_t, Tavro::len_t");
}

void StackOps::installDiscardOp(Context& context, TavroTypes type) {
  const bool known = withColumnType(type, [&]<typename T>() { DiscardOp<T>().install(context); });
  requireMember(known, "StackOps::installDiscardOp", "Tavro::TavroTypes");
}

void StackOps::installSwapOp(Context& context, TavroTypes type) {
  const bool known = withColumnType(type, [&]<typename T>() { SwapOp<T>().install(context); });
  requireMember(known, "StackOps::installSwapOp", "Tavro::TavroTypes");
}

void StackOps::installNSwapOp(Context& context, TavroTypes first, TavroTypes second) {
  using Number = unsigned long long;
  const EntryKind deeper = entryKind(first);
  const EntryKind top = entryKind(second);
  requireMember(deeper != EntryKind::Other && top != EntryKind::Other, "StackOps::installNSwapOp",
                "Tavro::TavroTypes, Tavro::TavroTypes");
  if (top == EntryKind::Numeric) {
    if (deeper == EntryKind::Numeric)
      NSwapOp<Number, Number>().install(context);
    else
      NSwapOp<Number, bool>().install(context);
  } else {
    if (deeper == EntryKind::Numeric)
      NSwapOp<bool, Number>().install(context);
    else
      NSwapOp<bool, bool>().install(context);
  }
}

}  // namespace Tavro::TvRT
