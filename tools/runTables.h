#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "Tavro/database.h"
#include "namedValues.h"
#include "pipeline.h"
#include "progress.h"
#include "rowOpsProgram.h"

namespace Tavro::Tool {

// One index of a table.
struct IndexOption {
  std::string table;
  std::string text;           // columns between commas, or @ and the path of a program
  RowOpsProgram program;      // loaded by loadIndexPrograms, if it has one
  TvPtr<RowOpsBase> rules{};  // the same; null for an index over columns
};

// What the command line says of tables.
struct TableOptions {
  std::map<std::string, std::string> files;  // by table
  std::string directory;                     // where the files of other tables are; empty for nowhere
  std::vector<IndexOption> indexes;          // in the order of their numbers
};

// Capacities of tables.
struct TableCapacities {
  std::size_t ofOutputs = 0;                   // of all output tables; 0 for no limit
  std::map<std::string, std::size_t> byTable;  // of single tables
};

// Loads the programs of the indexes, in order. Throws Failure for one that is not fit, and RowOpsFailure.
void loadIndexPrograms(const TvPtr<TavroDB>& database, TableOptions& options);

// Makes and fills the tables of a run, and gives the operators theirs. Returns the number of rows in tables
// that no operator writes. Throws Failure when a table has no file, a bad file, or rows of another length
// than a program says, and for files and indexes of tables that are not of the run.
std::size_t loadTables(TavroDB& database, std::vector<Operator>& operators, const TableOptions& options,
                       Progress& progress);

// Limits the tables of a run. Throws Failure for a table that is not of the run.
void limitTables(const std::vector<Operator>& operators, const TableCapacities& capacities);

}  // namespace Tavro::Tool
