#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "../allocation.h"
#include "../thrown.h"
#include "Tavro/database.h"

namespace Tavro {

using Texts = std::vector<std::string>;

// A row of the table from the text forms of its columns.
inline BaseRow makeRow(const Table& table, const Texts& cells) {
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

inline Texts walk(const Table& table, const TvTableInterface& interface, unsigned char index) {
  Texts rows;
  for (TvRowIterator i = interface.begin(index); i != interface.end(index); ++i)
    rows.push_back(textOf(table, *i));
  return rows;
}

// An interface that writes.
inline std::unique_ptr<TvTableInterface> makeWriter(Database& database, const std::string& table) {
  auto writer = std::make_unique<TvTableInterface>("writer", "", TvTableInterface::writeMode, nullptr,
                                                   nullptr, nullptr, nullptr);
  database.bindInterface(*writer, table);
  return writer;
}

// An interface that notes every change of the table, once it is active: "+" or "-" and the row.
inline std::unique_ptr<TvTableInterface> makeReader(Database& database, const Table& table, Texts& told) {
  const auto note = [&](char sign) {
    return [&, sign](const BaseRow& row) { told.push_back(sign + textOf(table, row)); };
  };
  auto reader = std::make_unique<TvTableInterface>("reader", "", TvTableInterface::readMode, nullptr,
                                                   note('+'), note('-'), nullptr);
  database.bindInterface(*reader, table.name());
  reader->clientReadyIs(true);
  return reader;
}

inline constexpr len_t keyColumn = 8;
inline constexpr len_t valueColumn = 12;
inline constexpr len_t textColumn = 16;
inline constexpr len_t fixedLength = 20;
// So few that keys of different rows have one hash.
inline constexpr unsigned hashes = 8;

inline unsigned columnOf(const BaseRow& row, len_t column) {
  std::uint32_t value = 0;
  row.getColumn(column, value);
  return value;
}
inline void addValues(BaseRow& current, const BaseRow& incoming) {
  current.setColumn(valueColumn, columnOf(current, valueColumn) + columnOf(incoming, valueColumn),
                    fixedLength);
}

// A row of the table in text form, and what a reader notes of it.
inline std::string text(unsigned k, unsigned v, const std::string& s = "") {
  return std::to_string(k) + '|' + std::to_string(v) + "|\"" + s + '"';
}
inline std::string added(unsigned k, unsigned v, const std::string& s = "") { return '+' + text(k, v, s); }
inline std::string gone(unsigned k, unsigned v, const std::string& s = "") { return '-' + text(k, v, s); }

// Compares one column. Can be made to fail at its call number `failAt`, 1 being the next.
class Rules : public RowOpsBase {
 public:
  Rules(unsigned index, bool isOrdered, bool isUnique, len_t column = keyColumn)
      : index_(static_cast<unsigned short>(index)), ordered_(isOrdered), unique_(isUnique), column_(column) {}

  unsigned hash(const BaseRow& row) override {
    count();
    return columnOf(row, column_) % hashes;
  }
  bool equals(const BaseRow& a, const BaseRow& b) override {
    count();
    EXPECT_EQ(columnOf(a, column_) % hashes, columnOf(b, column_) % hashes);
    return columnOf(a, column_) == columnOf(b, column_);
  }
  bool less(const BaseRow& a, const BaseRow& b) override {
    count();
    return columnOf(a, column_) < columnOf(b, column_);
  }
  // Can fail when its work is done.
  void autoUpdate(BaseRow& current, const BaseRow& incoming) override {
    merge(current, incoming);
    count();
  }
  bool unique() override { return unique_; }
  bool ordered() override { return ordered_; }
  unsigned short index() override { return index_; }
  long long getTotalInstructionsExecuted() override { return 0; }

  using Merge = std::function<void(BaseRow& current, const BaseRow& incoming)>;
  Merge merge = addValues;
  unsigned calls = 0;
  unsigned failAt = 0;

 private:
  void count() {
    ++calls;
    if (failAt != 0 && --failAt == 0) throw std::domain_error("rules");
  }

  unsigned short index_;
  bool ordered_;
  bool unique_;
  len_t column_;
};

// A table of k, v and s, which has k and s for its key or none, and a reader that notes all changes.
struct Fixture {
  explicit Fixture(bool keyed)
      : table(database->createTable(
            "t", {{"k", TypeUint32, false, keyed}, {"v", TypeUint32}, {"s", TypeString, false, keyed}})),
        writer(makeWriter(*database, "t")),
        reader(makeReader(*database, table, told)) {
    reader->activate(false);
  }

  void addColumns(const Texts& names) { indexes = table.addIndex(names); }
  TvPtr<Rules> addRules(bool ordered, bool unique, len_t column = keyColumn) {
    auto rules = std::make_shared<Rules>(indexes + 1, ordered, unique, column);
    indexes = table.addIndex(rules);
    return rules;
  }
  BaseRow row(unsigned k, unsigned v, const std::string& s = "") const {
    BaseRow made = table.newRow();
    made.setColumn(keyColumn, k, fixedLength);
    made.setColumn(valueColumn, v, fixedLength);
    made.setColumn(textColumn, s, fixedLength);
    return made;
  }
  void insert(unsigned k, unsigned v, const std::string& s = "") {
    BaseRow inserted = row(k, v, s);
    writer->rowIs(inserted);
  }
  Texts walkOf(unsigned index) const { return walk(table, *writer, static_cast<unsigned char>(index)); }
  // The walks of all indexes, one behind the other.
  Texts contents() const {
    Texts rows;
    for (unsigned i = 0; i <= indexes; ++i)
      for (const std::string& row : walkOf(i)) rows.push_back(row);
    return rows;
  }
  Texts news() {
    database->scheduler().runUntilIdle();
    return std::exchange(told, {});
  }

  std::unique_ptr<Database> database = std::make_unique<Database>();
  Table& table;
  unsigned indexes = 0;
  std::unique_ptr<TvTableInterface> writer;
  Texts told;
  std::unique_ptr<TvTableInterface> reader;
};

}  // namespace Tavro
