#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "Tavro/tavroDb.h"
#include "Tavro/tvMetadata.h"
#include "trialLoad.h"

namespace Tavro::Tool {

// A table as a program binds it.
struct ProgramTable {
  std::string name;
  std::string alias;
  len_t length;  // of the fixed part of its rows, as the program has it

  // By which the client's map redirects the table.
  std::string pathKey() const { return name + '.' + alias; }
};

// What a client has to know of a program before it can run it.
struct Program {
  std::vector<ProgramTable> tables;  // the output table first
  std::unordered_map<std::string, tvMetadata::tvColumn> parameters;
  bool isOneShot;  // what its properties say
};

// A program's file name has to end in ".tva". Throws Failure, which names the command whose help to read.
void requireProgramName(const std::string& path, const std::string& command);

// Assembles the program silently. Throws Failure when it cannot be read, when it does not assemble
// ("PATH:LINE: error: CAUSE").
TvRT::OwnedContext assembleProgram(const TvPtr<TavroDB>& database, const std::string& path);

// The same for a program that is to be hosted. Throws Failure, too, when it has no end statement or binds no
// output table.
TvRT::OwnedContext assembleHostedProgram(const TvPtr<TavroDB>& database, const std::string& path);

// Loads the program once, silently, to learn of its tables and parameters. Throws Failure as
// assembleHostedProgram does.
Program inspectProgram(const TvPtr<TavroDB>& database, const std::string& path);

}  // namespace Tavro::Tool
