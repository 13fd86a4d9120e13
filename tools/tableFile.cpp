#include "tableFile.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Tavro::Tool {

namespace {

std::vector<std::string_view> wordsOf(std::string_view text) {
  constexpr std::string_view blanks = " \t";
  std::vector<std::string_view> words;
  for (std::size_t begin = text.find_first_not_of(blanks); begin != std::string_view::npos;
       begin = text.find_first_not_of(blanks, begin)) {
    const std::size_t end = std::min(text.find_first_of(blanks, begin), text.size());
    words.push_back(text.substr(begin, end - begin));
    begin = end;
  }
  return words;
}

bool isColumnName(std::string_view name) {
  return std::none_of(name.begin(), name.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || c == ',' || c == '"';
  });
}

ColumnDefinition readDeclaration(const CsvReader& file, const CsvCell& cell) {
  const std::vector<std::string_view> words = wordsOf(cell.text);
  if (words.size() < 2 || words.size() > 3 || (words.size() == 3 && words[2] != "key"))
    file.failAt(cell.at,
                "'" + std::string(cell.text) + "' declares no column (\"name type\" or \"name type key\")");
  if (!isColumnName(words[0])) file.failAt(cell.at, "'" + std::string(words[0]) + "' is no column name");
  constexpr std::string_view arrayMark = "[]";
  const bool isArray = words[1].ends_with(arrayMark);
  const std::string typeName(words[1].substr(0, words[1].size() - (isArray ? arrayMark.size() : 0)));
  try {
    return {std::string(words[0]), tavroCppTypeNameToType(typeName), isArray, words.size() == 3};
  } catch (const std::invalid_argument&) {
    file.failAt(cell.at, "'" + std::string(words[1]) + "' is no column type");
  }
}

// Where a row has its key; the key of an index by program may stand anywhere in it.
const CsvCell& firstKeyCell(const Table& table, const CsvReader& file) {
  const auto& columns = table.columns();
  const auto key =
      std::find_if(columns.begin(), columns.end(), [](const auto& column) { return column.isKey(); });
  return file.cells()[key == columns.end() ? 0 : static_cast<std::size_t>(key - columns.begin())];
}

}  // namespace

Table& createTable(Database& database, const std::string& name, CsvReader& file) {
  if (!file.next()) file.failAt({}, "the file is empty; its first line has to declare the columns");
  std::vector<ColumnDefinition> columns;
  for (const CsvCell& cell : file.cells()) {
    ColumnDefinition column = readDeclaration(file, cell);
    if (std::any_of(columns.begin(), columns.end(),
                    [&](const auto& other) { return other.name == column.name; }))
      file.failAt(cell.at, "a second column named '" + column.name + "'");
    columns.push_back(std::move(column));
  }
  try {
    return database.createTable(name, columns);
  } catch (const std::invalid_argument& error) {
    file.failAt({}, error.what());
  }
}

std::size_t loadRows(TavroDB& database, Table& table, CsvReader& file, Progress& progress) {
  TvTableInterface writer(table.name() + "-Load", "", TvTableInterface::writeMode, {}, {}, {}, {});
  database.bindInterface(writer, table.name(), false);
  std::size_t count = 0;
  while (file.next()) {
    BaseRow row = readRow(table, file, file.cells());
    try {
      writer.rowIs(row);
    } catch (const TvOutOfRange& error) {
      file.failAt(firstKeyCell(table, file).at, error.what());
    }
    // A row whose key was there already has replaced that row.
    if (table.size() != ++count) file.failAt(firstKeyCell(table, file).at, "a second row with this key");
    progress.countIs(count);
  }
  return count;
}

BaseRow readRow(const Table& table, const CsvReader& file, std::span<const CsvCell> cells) {
  const auto& columns = table.columns();
  if (cells.size() != columns.size()) {
    const CsvCell& place = cells.size() > columns.size() ? cells[columns.size()] : file.cells().front();
    file.failAt(place.at, "table " + table.name() + " has " + std::to_string(columns.size()) +
                              " columns, but the row has " + std::to_string(cells.size()) + " cells");
  }
  BaseRow row = table.newRow();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    try {
      storeCell(row, columns[i], cells[i].text, table.fixedLength());
    } catch (const std::exception& error) {
      file.failAt(cells[i].at, "column " + columns[i].columnName() + ": " + error.what());
    }
  }
  return row;
}

void storeCell(BaseRow& row, const tvMetadata::tvColumn& column, std::string_view text, len_t fixedLength) {
  if (column.tvType() == TypeString && !column.isArray())
    row.setColumn(column.offset(), std::string(text), fixedLength);
  else
    storeColumnFromString(row, column.offset(), column.tvType(), column.structType(), column.isArray(),
                          std::string(text), fixedLength);
}

std::string typeText(const tvMetadata::tvColumn& column) {
  return getTavroTypeName(static_cast<TavroTypes>(column.tvType())) + (column.isArray() ? "[]" : "");
}

}  // namespace Tavro::Tool
