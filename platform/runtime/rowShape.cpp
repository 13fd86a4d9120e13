#include "rowShape.h"

#include <algorithm>

namespace Tavro {
namespace {

bool arrayFits(const unsigned char* payload, unsigned length, unsigned short type) {
  if (length == 0) return true;
  if (length < arrayCountWidth) return false;
  const unsigned count = loadBytes<std::uint16_t>(payload) & arrayMaxCount;
  const unsigned elements = length - arrayCountWidth;
  if (!isVariableWidth(type)) return count * getTavroTypeLength(type) <= elements;
  if (2 * count > elements) return false;
  unsigned previous = 0;
  for (unsigned i = 0; i < count; ++i) {
    const unsigned end = loadBytes<std::uint16_t>(payload + arrayCountWidth + std::size_t{2} * i);
    if (end < previous) return false;
    previous = end;
  }
  return previous <= elements - 2 * count;
}

bool payloadFits(const BaseRow& row, const tvMetadata::tvColumn& column) {
  const unsigned char* const slot = row.rowBuf() + column.offset();
  const unsigned begin = loadBytes<std::uint16_t>(slot);
  const unsigned length = slot[2] | (slot[3] & 0x7FU) << 8;
  if (length == 0) return true;
  if (begin + length > row.length()) return false;
  return !column.isArray() || arrayFits(row.rowBuf() + begin, length, column.tvType());
}

}  // namespace

bool isVariableWidth(unsigned short type) {
  return type == TypeString || type == TypeIpGenAddr || type == TypeIpGenPrefix;
}

bool isVariableColumn(const tvMetadata::tvColumn& column) {
  return column.isArray() || isVariableWidth(column.tvType());
}

RowShape::RowShape(const std::vector<tvMetadata::tvColumn>& columns, len_t fixedLength)
    : tableName_(columns.front().tableName()), fixedLength_(fixedLength) {
  for (const tvMetadata::tvColumn& column : columns) {
    end_ = std::max(end_, unsigned{column.offset()} + column.length());
    if (isVariableColumn(column)) variable_.push_back(column);
  }
}

void RowShape::throwMisfit(const BaseRow& row) const {
  if (row.length() < end_)
    throw TvOutOfRange("table " + tableName_ + ": row of " + std::to_string(row.length()) +
                       " bytes does not fit, fixed length is " + std::to_string(fixedLength_));
  throw TvOutOfRange("table " + tableName_ + ": column '" + misfit(row)->columnName() +
                     "' reaches beyond its row of " + std::to_string(row.length()) + " bytes");
}

const tvMetadata::tvColumn* RowShape::misfit(const BaseRow& row) const {
  for (const tvMetadata::tvColumn& column : variable_)
    if (!payloadFits(row, column)) return &column;
  return nullptr;
}

}  // namespace Tavro
