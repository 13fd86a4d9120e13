#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Tavro/database.h"

namespace Tavro {

// A row of the table from the text forms of its columns.
inline BaseRow makeRow(const Table& table, const std::vector<std::string>& cells) {
  BaseRow row = table.newRow();
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const tvMetadata::tvColumn& column = table.columns().at(i);
    storeColumnFromString(row, column.offset(), column.tvType(), 0, column.isArray(), cells[i],
                          table.fixedLength());
  }
  return row;
}

// Its columns in text form with "|" between them; "null" for a null row.
inline std::string textOf(const Table& table, const BaseRow& row) {
  if (row.isNull()) return "null";
  std::string text;
  for (const tvMetadata::tvColumn& column : table.columns())
    text += (&column == &table.columns().front() ? "" : "|") +
            columnToString(row, column.offset(), column.tvType(), column.isArray(), true);
  return text;
}

inline std::vector<std::string> walk(const Table& table, const TvTableInterface& interface,
                                     unsigned char index) {
  std::vector<std::string> rows;
  for (TvRowIterator i = interface.begin(index); i != interface.end(index); ++i)
    rows.push_back(textOf(table, *i));
  return rows;
}

template <typename Exception>
std::string messageOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Exception& exception) {
    return exception.what();
  }
  return "nothing was thrown";
}

// An interface that writes.
inline std::unique_ptr<TvTableInterface> makeWriter(Database& database, const std::string& table) {
  auto writer = std::make_unique<TvTableInterface>("writer", "", TvTableInterface::writeMode, nullptr,
                                                   nullptr, nullptr, nullptr);
  database.bindInterface(*writer, table);
  return writer;
}

// Allocations through operator new, counted, and made to fail on request.
namespace allocation {
// Blocks in use.
std::size_t inUse();
// Makes the allocation number `countdown` from here fail, 1 being the next; 0 for none.
void failAt(std::size_t countdown);
}  // namespace allocation

}  // namespace Tavro
