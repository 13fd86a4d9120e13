#pragma once

#include <string>
#include <vector>

#include "Tavro/baseRow.h"
#include "Tavro/tvMetadata.h"

namespace Tavro {

// True for columns that stand in the row as a 4-byte slot.
bool isVariableColumn(const tvMetadata::tvColumn& column);

// True for the types whose values have no fixed width.
bool isVariableWidth(unsigned short type);

// What a row must have so that some columns of a table can be read from it without leaving the row's bytes.
// Rows come from anywhere: of another table, shorter, with slots that mean something else.
class RowShape {
 public:
  // `fixedLength` is that of the table, for messages.
  RowShape(const std::vector<tvMetadata::tvColumn>& columns, len_t fixedLength);

  // `row` must not be null.
  bool fits(const BaseRow& row) const {
    return row.length() >= end_ && (variable_.empty() || misfit(row) == nullptr);
  }
  // Throws TvOutOfRange with the table and what does not fit.
  void require(const BaseRow& row) const {
    if (!fits(row)) [[unlikely]]
      throwMisfit(row);
  }

 private:
  [[noreturn]] void throwMisfit(const BaseRow& row) const;
  const tvMetadata::tvColumn* misfit(const BaseRow& row) const;

  std::string tableName_;
  std::vector<tvMetadata::tvColumn> variable_;
  unsigned end_ = tv_contentOffset;
  len_t fixedLength_;
};

}  // namespace Tavro
