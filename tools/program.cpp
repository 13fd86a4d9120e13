#include "program.h"

#include <array>
#include <cstdio>
#include <memory>
#include <utility>

#include "failure.h"
#include "trialLoad.h"

namespace Tavro::Tool {

namespace {

constexpr const char* programSuffix = ".tva";

std::string readText(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  if (file == nullptr) failOnFile(path);
  std::string text;
  std::array<char, 16384> block;
  while (const std::size_t count = std::fread(block.data(), 1, block.size(), file.get()))
    text.append(block.data(), count);
  if (std::ferror(file.get()) != 0) failOnFile(path);
  return text;
}

std::vector<ProgramTable> tablesOf(const TvRT::Context& context) {
  std::vector<ProgramTable> tables;
  for (auto info = context.tbisBegin(); info != context.tbisEnd(); ++info)
    if (*info != nullptr) tables.push_back({(*info)->name, (*info)->alias, (*info)->len});
  return tables;
}

}  // namespace

void requireProgramName(const std::string& path, const std::string& command) {
  if (!path.ends_with(programSuffix))
    failCommandLine("the program's name has to end in " + std::string(programSuffix) + ": " + path, command);
}

TvRT::OwnedContext assembleProgram(const TvPtr<TavroDB>& database, const std::string& path) {
  const std::string text = readText(path);
  LoadOutcome outcome = tryLoad(database, text);
  if (!outcome.fault.empty())
    throw Failure(ExitStatus::RunFailed, path + ':' +
                                             std::to_string(lineOfFault(database, text, outcome.fault)) +
                                             ": error: " + outcome.fault);
  return std::move(outcome.context);
}

TvRT::OwnedContext assembleHostedProgram(const TvPtr<TavroDB>& database, const std::string& path) {
  TvRT::OwnedContext context = assembleProgram(database, path);
  if (context->tempRowIndex() == 0) fail(path + ": the program has no end statement");
  if (context->outTable() == nullptr) fail(path + ": the program binds no output table (bindTable 0, ...)");
  return context;
}

Program inspectProgram(const TvPtr<TavroDB>& database, const std::string& path) {
  const TvRT::OwnedContext context = assembleHostedProgram(database, path);
  return {tablesOf(*context), context->parameterColumns(), context->oneShot()};
}

}  // namespace Tavro::Tool
