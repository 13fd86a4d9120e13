#pragma once

#include <string>
#include <type_traits>

#include "Tavro/arrayReference.h"
#include "Tavro/export.h"
#include "Tavro/types.h"
#include "Tavro/values.h"

namespace Tavro::TvRT {

// The name of a native type as trace lines print it, for the sixteen instantiation types and the three owning
// forms.
template <typename T>
TAVRO_EXPORT std::string TvRTTypename();

// The type code of a native type, for the same types. Owning forms have the code of their views.
template <typename T>
TAVRO_EXPORT TavroTypes TvRTTypeValue();

// The platform's name of a type code, or "unknown".
TAVRO_EXPORT std::string typeNameOrUnknown(TavroTypes type);

// A type of the machine: its code, its name, and how signature texts spell it.
struct NativeType {
  TavroTypes code;
  const char* name;
  const char* spelling;
};

namespace detail {
constexpr NativeType tableType(TavroTypes code, const char* spelling) {
  for (const TypeRow& row : typeTable)
    if (row.code == code) return {code, row.name, spelling};
  return {code, nullptr, spelling};
}
}  // namespace detail

// No general definition: these nineteen are the types that the machine knows.
template <typename T>
inline constexpr NativeType nativeType = std::enable_if_t<!std::is_same_v<T, T>, NativeType>{};
template <>
inline constexpr NativeType nativeType<unsigned char> = detail::tableType(TypeUint8, "unsigned char");
template <>
inline constexpr NativeType nativeType<unsigned short> = detail::tableType(TypeUint16, "short unsigned int");
template <>
inline constexpr NativeType nativeType<unsigned int> = detail::tableType(TypeUint32, "unsigned int");
template <>
inline constexpr NativeType nativeType<unsigned long long> = detail::tableType(TypeUint64,
                                                                               "long long unsigned int");
template <>
inline constexpr NativeType nativeType<signed char> = detail::tableType(TypeInt8, "signed char");
template <>
inline constexpr NativeType nativeType<short> = detail::tableType(TypeInt16, "short int");
template <>
inline constexpr NativeType nativeType<int> = detail::tableType(TypeInt32, "int");
template <>
inline constexpr NativeType nativeType<long long> = detail::tableType(TypeInt64, "long long int");
template <>
inline constexpr NativeType nativeType<float> = detail::tableType(TypeFloat, "float");
template <>
inline constexpr NativeType nativeType<double> = detail::tableType(TypeDouble, "double");
template <>
inline constexpr NativeType nativeType<bool> = detail::tableType(TypeBool, "bool");
template <>
inline constexpr NativeType nativeType<std::string> = detail::tableType(TypeString,
                                                                        "std::basic_string<char>");
template <>
inline constexpr NativeType nativeType<StringValueReference> = {TypeString, "StringValueReference",
                                                                "Tavro::StringValueReference"};
template <>
inline constexpr NativeType nativeType<IpAddr> = detail::tableType(TypeIpAddr, "Tavro::IpAddr");
template <>
inline constexpr NativeType nativeType<Ip6Addr> = detail::tableType(TypeIp6Addr, "Tavro::Ip6Addr");
template <>
inline constexpr NativeType nativeType<IpGenAddr> = detail::tableType(TypeIpGenAddr, "Tavro::IpGenAddr");
template <>
inline constexpr NativeType nativeType<IpGenAddrReference> = {TypeIpGenAddr, "IpGenAddrReference",
                                                              "Tavro::IpGenAddrReference"};
template <>
inline constexpr NativeType nativeType<IpGenPrefix> = detail::tableType(TypeIpGenPrefix,
                                                                        "Tavro::IpGenPrefix");
template <>
inline constexpr NativeType nativeType<IpGenPrefixReference> = {TypeIpGenPrefix, "IpGenPrefixReference",
                                                                "Tavro::IpGenPrefixReference"};

// How signature texts spell a type.
template <typename T>
struct Spelling {
  static std::string text() { return nativeType<T>.spelling; }
};
template <typename T>
struct Spelling<ArrayReference<T>> {
  static std::string text() { return "Tavro::ArrayReference<" + Spelling<T>::text() + ">"; }
};

// The stack type of a column type: integers widen to 64 bits and `float` to `double`.
template <typename CT>
using StackTypeOf = std::conditional_t<
    std::is_same_v<CT, float>, double,
    std::conditional_t<!std::is_integral_v<CT> || std::is_same_v<CT, bool>, CT,
                       std::conditional_t<std::is_unsigned_v<CT>, unsigned long long, long long>>>;

// A column value as instructions move it: a `bool` as its byte, which need be neither 0 nor 1.
template <typename CT>
using Moved = std::conditional_t<std::is_same_v<CT, bool>, unsigned char, CT>;

// A column value on its way to the stack. By value, as below: it may stand in the stream, unaligned.
template <typename CT>
inline auto widen(Moved<CT> value) {
  return static_cast<Moved<StackTypeOf<CT>>>(value);
}

// A stack value on its way into a column: high bits go without a message.
template <typename CT, typename ST>
inline Moved<CT> narrow(ST value) {
  return static_cast<Moved<CT>>(value);
}

// Calls `use.template operator()<CT>()` with the column type of a code. False, and no call, for a code that
// has no instantiation. This is the one switch behind every dispatcher that is typed on a column.
template <typename Use>
constexpr bool withColumnType(int code, const Use& use) {
  switch (code) {
    case TypeUint8:
      use.template operator()<unsigned char>();
      return true;
    case TypeUint16:
    case TypePort:
      use.template operator()<unsigned short>();
      return true;
    case TypeUint32:
    case TypeTime:
      use.template operator()<unsigned int>();
      return true;
    case TypeUint64:
      use.template operator()<unsigned long long>();
      return true;
    case TypeInt8:
      use.template operator()<signed char>();
      return true;
    case TypeInt16:
      use.template operator()<short>();
      return true;
    case TypeInt32:
      use.template operator()<int>();
      return true;
    case TypeInt64:
      use.template operator()<long long>();
      return true;
    case TypeFloat:
      use.template operator()<float>();
      return true;
    case TypeDouble:
      use.template operator()<double>();
      return true;
    case TypeBool:
      use.template operator()<bool>();
      return true;
    case TypeString:
      use.template operator()<StringValueReference>();
      return true;
    case TypeIpAddr:
      use.template operator()<IpAddr>();
      return true;
    case TypeIp6Addr:
      use.template operator()<Ip6Addr>();
      return true;
    case TypeIpGenAddr:
      use.template operator()<IpGenAddrReference>();
      return true;
    case TypeIpGenPrefix:
      use.template operator()<IpGenPrefixReference>();
      return true;
    default:
      return false;
  }
}

}  // namespace Tavro::TvRT
