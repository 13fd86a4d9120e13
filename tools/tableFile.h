#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "Tavro/database.h"
#include "csvReader.h"
#include "progress.h"

// Table files: a CSV file whose first record declares the columns, one "name type" or "name type key" per
// cell.
namespace Tavro::Tool {

// Makes the table `name` with the columns that the file's first record declares. Throws Failure on a bad
// header.
Table& createTable(Database& database, const std::string& name, CsvReader& file);

// Reads the records behind the header into the table and returns their number. Throws Failure on the first
// bad record, and on a second row with one key.
std::size_t loadRows(TavroDB& database, Table& table, CsvReader& file, Progress& progress);

// A row of the table out of `cells`, which are the record of `file` last read or its end. Throws Failure on a
// wrong number of cells and on a bad value.
BaseRow readRow(const Table& table, const CsvReader& file, std::span<const CsvCell> cells);

// Stores the value that `text` stands for in the column. Throws what storeColumnFromString throws.
void storeCell(BaseRow& row, const tvMetadata::tvColumn& column, std::string_view text, len_t fixedLength);

// How a table header calls the column's type.
std::string typeText(const tvMetadata::tvColumn& column);

}  // namespace Tavro::Tool
