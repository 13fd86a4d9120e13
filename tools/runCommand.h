#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Tavro::Tool {

// What the command line of `tvop run` says, as it stands there.
struct RunOptions {
  std::string program;
  std::vector<std::string> tables;
  std::string directory;
  std::vector<std::string> parameters;
  std::vector<std::string> indexes;
  bool standing = false;
  std::string events = "-";
  std::size_t capacity = 0;  // 0 for no limit
  std::vector<std::string> traces;
  bool stats = false;
};

// Adds `tvop run` to the command line; parsing it fills `options`.
CLI::App* addRunCommand(CLI::App& app, RunOptions& options);

// Runs a program over tables. Throws Failure.
void runProgram(const RunOptions& options);

}  // namespace Tavro::Tool
