#pragma once

#include <array>
#include <string>

#include "Tavro/export.h"

namespace Tavro {

// Row lengths, column offsets, row slots, stream offsets and label numbers.
using len_t = unsigned short;

// The column types. Code 12 is a hole.
enum TavroTypes : int {
  TypeUint8 = 0,
  TypeUint16 = 1,
  TypeUint32 = 2,
  TypeUint64 = 3,
  TypeInt8 = 4,
  TypeInt16 = 5,
  TypeInt32 = 6,
  TypeInt64 = 7,
  TypeFloat = 8,
  TypeDouble = 9,
  TypeBool = 10,
  TypeString = 11,
  TypeTime = 13,
  TypePort = 14,
  TypeIpAddr = 15,
  TypeIp6Addr = 16,
  TypeIpGenAddr = 17,
  TypeIpGenPrefix = 18,
};

// The slot that a variable column (string, general address, general prefix, any array) takes in the fixed
// part of a row.
inline constexpr len_t variableSlotWidth = 4;

struct TypeRow {
  TavroTypes code;
  const char* name;
  // Bytes that a column of the type takes in the fixed part of a row.
  len_t width;
};

// The type table: every type that a column can have, with the name by which texts know it.
inline constexpr std::array<TypeRow, 18> typeTable{{
    {TypeUint8, "uint8_t", 1},
    {TypeUint16, "uint16_t", 2},
    {TypeUint32, "uint32_t", 4},
    {TypeUint64, "uint64_t", 8},
    {TypeInt8, "int8_t", 1},
    {TypeInt16, "int16_t", 2},
    {TypeInt32, "int32_t", 4},
    {TypeInt64, "int64_t", 8},
    {TypeFloat, "float", 4},
    {TypeDouble, "double", 8},
    {TypeBool, "bool", 1},
    {TypeString, "string_t", variableSlotWidth},
    {TypeTime, "time_t", 4},
    {TypePort, "port_t", 2},
    {TypeIpAddr, "IpAddr", 4},
    {TypeIp6Addr, "Ip6Addr", 16},
    {TypeIpGenAddr, "IpGenAddr", variableSlotWidth},
    {TypeIpGenPrefix, "IpGenPrefix", variableSlotWidth},
}};

// The type of a name as it stands in assembly texts and table headers. Throws std::invalid_argument on a name
// that is not in the table.
TAVRO_EXPORT TavroTypes tavroCppTypeNameToType(const std::string& name);

// The name of a type. Throws TvOutOfRange on a code that is not in the table.
TAVRO_EXPORT const std::string& getTavroTypeName(TavroTypes type);

// Bytes that a scalar column of the type takes in the fixed part of a row. Throws TvOutOfRange on a code that
// is not in the table.
TAVRO_EXPORT unsigned short getTavroTypeLength(unsigned short type);

}  // namespace Tavro
