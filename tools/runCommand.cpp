#include "runCommand.h"

#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <utility>

#include "Tavro/TvRTProxy.h"
#include "Tavro/database.h"
#include "clientMap.h"
#include "csvReader.h"
#include "events.h"
#include "failure.h"
#include "outputReader.h"
#include "program.h"
#include "progress.h"
#include "rowOpsProgram.h"
#include "runTables.h"
#include "tablePrinter.h"
#include "traceLevels.h"

namespace Tavro::Tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* command = "tvop run";
constexpr const char* standardInput = "-";

// One run of a program over tables that are filled.
class Run {
 public:
  Run(const RunOptions& options, TvPtr<TavroDB> database, const RunTables& tables)
      : options_(options), database_(std::move(database)), tables_(tables), rowsIn_(tables.rowsIn) {}

  void start(const ClientMap& client);
  void oneShot(Progress& progress);
  void standing(CsvReader& eventFile, Progress& progress);
  void printStats() const;

 private:
  template <typename Work>
  void guarded(const Work& work);
  [[noreturn]] void failDrained(const std::string& text);

  const RunOptions& options_;
  TvPtr<TavroDB> database_;
  RunTables tables_;
  std::size_t rowsIn_;
  Clock::time_point begin_ = Clock::now();
  std::unique_ptr<OutputReader> reader_;
  TvPtr<TvRT::Proxy> operator_;
};

// What the operator raises ends the run. Rows that it had inserted before are printed all the same.
template <typename Work>
void Run::guarded(const Work& work) {
  try {
    work();
  } catch (const Failure&) {
    throw;
  } catch (const RowOpsFailure& error) {
    failDrained(error.what());
  } catch (const std::exception& error) {
    failDrained(options_.program + ": " + error.what());
  }
}

void Run::failDrained(const std::string& text) {
  if (reader_ != nullptr) reader_->drain();
  fail(text);
}

void Run::start(const ClientMap& client) {
  if (options_.capacity != 0) tables_.output->capacityIs(options_.capacity);
  guarded([&] {
    operator_ = TvRT::Proxy::factory(options_.program, client, options_.standing);
    operator_->enable();
  });
  reader_ = std::make_unique<OutputReader>(*database_, *tables_.output, options_.standing);
  reader_->printHeader();
}

void Run::oneShot(Progress& progress) {
  SchedulerQueue& scheduler = database_->database().scheduler();
  guarded([&] {
    while (!reader_->ended() && scheduler.step()) progress.countIs(reader_->rowsOut());
  });
  if (!reader_->ended()) fail(options_.program + ": ended without an end-of-data mark");
}

void Run::standing(CsvReader& eventFile, Progress& progress) {
  SchedulerQueue& scheduler = database_->database().scheduler();
  // Whoever writes the events line by line sees what came of one before the next is waited for.
  eventFile.waitHandlerIs(flushOutput);
  EventReader events(database_, eventFile, *tables_.output);
  std::size_t count = 0;
  do {
    guarded([&] { scheduler.runUntilIdle(); });
    progress.countIs(count++);
  } while (events.applyNext());
  rowsIn_ += events.rowsIn();
}

void Run::printStats() const {
  const double seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
  std::fprintf(stderr,
               "rows in: %zu, rows out: %zu, deletions: %zu, suspensions: %zu, time: %.6f s, rows/s: %.0f\n",
               rowsIn_, reader_->rowsOut(), reader_->deletions(), tables_.output->refusals(), seconds,
               static_cast<double>(rowsIn_) / seconds);
}

std::unique_ptr<CsvReader> openEvents(const RunOptions& options) {
  if (!options.standing) return nullptr;
  if (options.events == standardInput) return std::make_unique<CsvReader>(STDIN_FILENO, "<stdin>");
  return std::make_unique<CsvReader>(options.events);
}

TableOptions readTableOptions(const RunOptions& options) {
  TableOptions tables{readNamedValues("--table NAME=FILE", options.tables), options.directory, {}};
  for (const std::string& text : options.indexes) {
    const auto [table, index] = readNamedValue("--index TABLE=COLUMN[,COLUMN...]", text);
    tables.indexes.push_back({table, index, {}});
  }
  return tables;
}

// A progress line must not stand between the rows of the output, nor before somebody who types events.
bool mayShowRun(const RunOptions& options) {
  return isatty(STDOUT_FILENO) == 0 &&
         (!options.standing || options.events != standardInput || isatty(STDIN_FILENO) == 0);
}

constexpr const char* footer =
    R"(Indexes of a table are numbered from 1 in the order in which they are given. An index over columns is
ordered by them and not unique. One by program is ordered if the program defines the entry "less", else
rows are found by its "hash" and "equals". If it defines "autoUpdate" it has one row per key, and a row
whose key is in the table, in this index or in index 0, is merged into the one that is there.

Table files are CSV. Their first record declares the columns, "name type" or "name type key" each:
  id uint32_t key,price double,tags string_t[]

--stats writes one line to standard error:
  rows in: N, rows out: N, deletions: N, suspensions: N, time: SECONDS s, rows/s: N
where rows in are those of the input tables, from files and events, suspensions is how often the output
table was full, and time is that of the run, without loading.

Exit status: 0 the query ran to its end, 1 the program, its data or its run failed, 2 wrong command line.

Example: the rows of in.csv above a limit
  tvop run above.tva --table demo::in=in.csv --table demo::out=out.csv --param limit=10)";

}  // namespace

CLI::App* addRunCommand(CLI::App& app, RunOptions& options) {
  CLI::App* const run = app.add_subcommand("run", "Run a program over tables and print its output table");
  const auto addList = [run](const char* name, std::vector<std::string>& values, const char* form,
                             const char* text) {
    run->add_option(name, values, text)->allow_extra_args(false)->type_name(form)->option_text(form);
  };
  run->add_option("PROGRAM", options.program, "The operator's program, a .tva file")
      ->required()
      ->option_text(" ");
  addList("--table", options.tables, "NAME=FILE", "The file of table NAME");
  run->add_option("--db", options.directory,
                  "Where the files of all other tables are, as DIR/NAME.csv\nwith . for ::")
      ->option_text("DIR");
  addList("--param", options.parameters, "NAME=VALUE",
          "A parameter's value, or another table for a table path\n(demo::in.i=demo::other)");
  addList("--index", options.indexes, "TABLE=COLUMN[,COLUMN...] | TABLE=@OPS.tva",
          "A further index of the table, over columns or by a program");
  CLI::Option* const standing = run->add_flag(
      "--standing", options.standing, "Print every change of the output table, and go on with events");
  run->add_option("--events", options.events,
                  "Events, one CSV record each: +,TABLE,VALUE,... inserts,\n-,TABLE,VALUE,... deletes a row. "
                  "- is standard input, the default")
      ->needs(standing)
      ->option_text("FILE");
  run->add_option("--capacity", options.capacity, "Let the output table take N rows, then block")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1} << 31).description(""))
      ->option_text("N");
  addList("--trace", options.traces, "CATEGORY=LEVEL[,LEVEL...]",
          "Levels of a debug category to trace on standard error");
  run->add_flag("--stats", options.stats, "Write one line of figures to standard error at the end");
  run->footer(footer);
  return run;
}

void runProgram(const RunOptions& options) {
  requireProgramName(options.program, command);
  TableOptions tableOptions = readTableOptions(options);
  const auto parameters = readNamedValues("--param NAME=VALUE", options.parameters);
  const std::vector<TraceLevel> traces = readTraceLevels(options.traces);

  bufferOutput();
  const TvPtr<TavroDB> database = getTavroDb();
  loadIndexPrograms(database, tableOptions);
  const Program program = inspectProgram(database, options.program);
  const ClientMap client = makeClientMap(program, parameters);
  const std::unique_ptr<CsvReader> events = openEvents(options);
  const bool isTerminal = isatty(STDERR_FILENO) != 0;
  const RunTables tables = [&] {
    Progress progress(isTerminal);
    return loadTables(*database, program, client, tableOptions, progress);
  }();

  turnOn(traces);
  Run run(options, database, tables);
  run.start(client);
  {
    Progress progress(isTerminal && mayShowRun(options));
    progress.stageIs("running");
    events != nullptr ? run.standing(*events, progress) : run.oneShot(progress);
  }
  flushOutput();
  if (options.stats) run.printStats();
}

}  // namespace Tavro::Tool
