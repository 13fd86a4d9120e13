#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Tavro::Tool {

// What the command line of `tvop rowops` says, as it stands there.
struct RowopsOptions {
  std::string program;
  std::vector<std::string> tables;
  std::string operation;
};

// Adds `tvop rowops` to the command line; parsing it fills `options`.
CLI::App* addRowopsCommand(CLI::App& app, RowopsOptions& options);

// Runs a row operation over the rows of a table file. Throws Failure and RowOpsFailure.
void runRowOps(const RowopsOptions& options);

}  // namespace Tavro::Tool
