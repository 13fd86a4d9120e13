#pragma once

#include <string>

namespace CLI {
class App;
}

namespace Tavro::Tool {

// What the command line of `tvop list` says.
struct ListOptions {
  std::string program;
};

// Adds `tvop list` to the command line; parsing it fills `options`.
CLI::App* addListCommand(CLI::App& app, ListOptions& options);

// Prints a loaded program. Throws Failure.
void listProgram(const ListOptions& options);

}  // namespace Tavro::Tool
