#pragma once

#include <string>

#include "Tavro/baseRow.h"
#include "Tavro/export.h"
#include "Tavro/types.h"

namespace Tavro {

namespace tvMetadata {

// Describes one column.
class TAVRO_EXPORT tvColumn {
 public:
  tvColumn() = default;
  // `length` is the width of the column in the fixed part. The unnamed arguments are carried by callers of
  // the system and mean nothing to this platform.
  tvColumn(const std::string& tableName, const std::string& columnName, const unsigned short& type,
           const unsigned int& structType, const unsigned short& length, const unsigned short&,
           const bool& isArray, const unsigned short&, const unsigned short& offset, const bool& isKey,
           const bool&)
      : tableName_(tableName),
        columnName_(columnName),
        structType_(structType),
        type_(type),
        length_(length),
        offset_(offset),
        isArray_(isArray),
        isKey_(isKey) {}

  const std::string& tableName() const { return tableName_; }
  const std::string& columnName() const { return columnName_; }
  unsigned short tvType() const { return type_; }
  unsigned int structType() const { return structType_; }
  unsigned short length() const { return length_; }
  len_t offset() const { return offset_; }
  bool isArray() const { return isArray_; }
  bool isKey() const { return isKey_; }

 private:
  std::string tableName_;
  std::string columnName_;
  unsigned int structType_ = 0;
  unsigned short type_ = 0;
  unsigned short length_ = 0;
  unsigned short offset_ = 0;
  bool isArray_ = false;
  bool isKey_ = false;
};

}  // namespace tvMetadata

// Parses `text` by the type and stores the value into the column at `offset`. Text forms:
// - integers decimal or 0x hexadecimal with an optional minus sign, within the range of the type; floating
//   numbers as std::from_chars takes them, with nan, inf and -inf; `true` and `false`; addresses and prefixes
//   in their usual forms, empty for no address;
// - a string within double quotes, with everything between the first and the last of them taken as it is;
// - arrays as [v,v,...], blanks around elements allowed; strings in it within double quotes, with \" and
// \\ as
//   escapes; the empty text is the empty array, and an element that is empty or "" is no address. A string
//   array may come within one more pair of double quotes, as a program's parameters do.
// Throws std::invalid_argument with a text that says what is wrong with the value ("'x' is no uint8_t"), and
// what BaseRow::setColumn throws. The row is then as it was.
TAVRO_EXPORT void storeColumnFromString(BaseRow& row, unsigned short offset, unsigned short type,
                                        unsigned int structType, bool isArray, const std::string& text,
                                        unsigned short fdLen);

// The way back: the text form of the column at `offset`, which storeColumnFromString reads as the same value;
// numbers in the shortest form that does. A string is within quotes when `quoted`, else it is its bytes.
TAVRO_EXPORT std::string columnToString(const BaseRow& row, unsigned short offset, unsigned short type,
                                        bool isArray, bool quoted);

namespace TvStrUtils {
// `text` without surrounding white space.
TAVRO_EXPORT std::string trim(const std::string& text);
// Equal without regard to the case of ASCII letters.
TAVRO_EXPORT bool iequals(const std::string& left, const std::string& right);
}  // namespace TvStrUtils

}  // namespace Tavro
