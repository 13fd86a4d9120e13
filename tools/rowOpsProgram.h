#pragma once

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Tavro/RowOpsBase.h"
#include "Tavro/database.h"
#include "program.h"

namespace Tavro::Tool {

// What a program of row operations has raised while it ran: "PATH: TEXT".
class RowOpsFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What is to be known of a program of row operations before it can run.
struct RowOpsProgram {
  // Refuses a table whose rows are of another length than the program says. Throws Failure.
  void checkFits(const Table& table) const;

  std::string path;
  std::vector<ProgramTable> operands;  // as it binds slot 1 and, unless it only hashes, slot 2
  std::set<std::string> operations;    // those it defines
};

// Loads the program once, silently, to learn of it. Throws Failure, as inspectProgram does.
RowOpsProgram inspectRowOps(const TvPtr<TavroDB>& database, const std::string& path);

// The program's operations, as rules of index number `index`: unique if it defines "autoUpdate", ordered if
// it defines "less". Throws RowOpsFailure, as every operation does.
TvPtr<RowOpsBase> loadRowOps(const RowOpsProgram& program, unsigned short index);

}  // namespace Tavro::Tool
