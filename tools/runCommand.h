#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Tavro::Tool {

// What the command line of `tvop run` says, as it stands there.
struct RunOptions {
  std::vector<std::string> programs;
  std::vector<std::string> tables;
  std::string directory;
  std::vector<std::string> parameters;
  std::vector<std::string> indexes;
  bool standing = false;
  std::string events = "-";
  std::vector<std::string> capacities;
  std::optional<std::uint64_t> seed;
  bool failFast = false;
  std::vector<std::string> traces;
  bool stats = false;
};

// Adds `tvop run` to the command line; parsing it fills `options`.
CLI::App* addRunCommand(CLI::App& app, RunOptions& options);

// Runs programs over tables. Throws Failure. Returns false when an operator has failed, which has been
// reported.
bool runPrograms(const RunOptions& options);

}  // namespace Tavro::Tool
