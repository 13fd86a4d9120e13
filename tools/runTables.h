#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "Tavro/database.h"
#include "clientMap.h"
#include "namedValues.h"
#include "program.h"
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

struct RunTables {
  Table* output;
  std::size_t rowsIn;  // rows of all tables but the output
};

// Loads the programs of the indexes, in order. Throws Failure for one that is not fit, and RowOpsFailure.
void loadIndexPrograms(const TvPtr<TavroDB>& database, TableOptions& options);

// Makes and fills the tables of a run. Throws Failure when one has no file, a bad file, or rows of another
// length than the program says, and for files and indexes of tables that are not of the run.
RunTables loadTables(TavroDB& database, const Program& program, const ClientMap& client,
                     const TableOptions& options, Progress& progress);

}  // namespace Tavro::Tool
