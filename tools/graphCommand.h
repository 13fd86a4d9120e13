#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Tavro::Tool {

// What the command line of `tvop graph` says.
struct GraphOptions {
  std::vector<std::string> programs;
  bool json = false;
};

// Adds `tvop graph` to the command line; parsing it fills `options`.
CLI::App* addGraphCommand(CLI::App& app, GraphOptions& options);

// Prints which tables the programs join, and how. Throws Failure.
void printGraph(const GraphOptions& options);

}  // namespace Tavro::Tool
