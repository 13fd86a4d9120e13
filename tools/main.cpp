// tvop, the workbench of people who write operators.

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <csignal>
#include <cstdio>
#include <exception>

#include "failure.h"
#include "graphCommand.h"
#include "listCommand.h"
#include "rowopsCommand.h"
#include "runCommand.h"

namespace {

using Tavro::Tool::ExitStatus;
using Tavro::Tool::Failure;

// Prints what has been asked for, or throws Failure for a command line that is wrong. True when there is a
// command to carry out.
bool readCommandLine(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty()) Tavro::Tool::failCommandLine("no command given", "tvop");
    return true;
  } catch (const CLI::Success& wish) {
    app.exit(wish);
    return false;
  } catch (const CLI::ParseError& error) {
    const auto commands = app.get_subcommands();
    Tavro::Tool::failCommandLine(error.what(),
                                 commands.empty() ? "tvop" : "tvop " + commands.front()->get_name());
  }
}

ExitStatus endWith(ExitStatus status, const char* line) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s\n", line);
  return status;
}

ExitStatus runTool(int argc, char** argv) {
  try {
    CLI::App app("The workbench for table operators written in the .tva language", "tvop");
    app.set_version_flag("--version", "tvop " TVOP_VERSION, "Print the version and exit");
    app.require_subcommand(0, 1);
    app.footer("tvop SUBCOMMAND --help says more of each.");
    Tavro::Tool::RunOptions options;
    Tavro::Tool::addRunCommand(app, options);
    Tavro::Tool::RowopsOptions rowopsOptions;
    Tavro::Tool::ListOptions listOptions;
    const CLI::App* const list = Tavro::Tool::addListCommand(app, listOptions);
    Tavro::Tool::GraphOptions graphOptions;
    const CLI::App* const graph = Tavro::Tool::addGraphCommand(app, graphOptions);
    const CLI::App* const rowops = Tavro::Tool::addRowopsCommand(app, rowopsOptions);
    if (!readCommandLine(app, argc, argv)) return ExitStatus::Done;
    if (rowops->parsed())
      Tavro::Tool::runRowOps(rowopsOptions);
    else if (list->parsed())
      Tavro::Tool::listProgram(listOptions);
    else if (graph->parsed())
      Tavro::Tool::printGraph(graphOptions);
    else
      return Tavro::Tool::runPrograms(options) ? ExitStatus::Done : ExitStatus::RunFailed;
    return ExitStatus::Done;
  } catch (const Failure& failure) {
    return endWith(failure.status(), failure.what());
  } catch (const std::exception& error) {
    return endWith(ExitStatus::RunFailed,
                   Failure(ExitStatus::RunFailed, std::string("tvop: ") + error.what()).what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  // Whoever reads the output may have seen enough: end without a word, whatever the parent has set.
  std::signal(SIGPIPE, SIG_DFL);
  return static_cast<int>(runTool(argc, argv));
}
