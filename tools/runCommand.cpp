#include "runCommand.h"

#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include "Tavro/database.h"
#include "clientMap.h"
#include "csvReader.h"
#include "events.h"
#include "failure.h"
#include "hostedOperator.h"
#include "outputReader.h"
#include "pipeline.h"
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
constexpr std::size_t largestCapacity = std::size_t{1} << 31;

// One run of operators over tables that are filled.
class Run {
 public:
  Run(const RunOptions& options, TvPtr<TavroDB> database, const std::vector<Operator>& operators,
      std::size_t rowsIn)
      : options_(options),
        database_(std::move(database)),
        operators_(operators),
        flow_(operators.size() == 1 ? std::vector<std::size_t>{0} : orderOfFlow(operators)),
        rowsIn_(rowsIn) {}

  void start();
  void oneShot(Progress& progress);
  void standing(CsvReader& eventFile, Progress& progress);
  bool hasFailed() const { return failures_ != 0; }
  void printStats() const;

 private:
  void host(const Operator& plan);
  void reportFailure(const std::string& text);
  bool isOver() const;
  bool step();
  void endTables();
  std::set<const Table*> outputs() const;

  const RunOptions& options_;
  TvPtr<TavroDB> database_;
  const std::vector<Operator>& operators_;
  std::vector<std::size_t> flow_;
  std::size_t rowsIn_;
  Clock::time_point begin_ = Clock::now();
  std::unique_ptr<OutputReader> reader_;
  std::vector<std::unique_ptr<HostedOperator>> hosted_;
  std::size_t failures_ = 0;
};

std::set<const Table*> Run::outputs() const {
  std::set<const Table*> tables;
  for (const Operator& one : operators_) tables.insert(&one.output());
  return tables;
}

void Run::start() {
  SchedulerQueue& scheduler = database_->database().scheduler();
  if (options_.seed) scheduler.seedIs(*options_.seed);
  if (operators_.size() > 1) {
    std::map<Table*, std::size_t> fillers;
    for (const Operator& one : operators_) ++fillers[&one.output()];
    for (const auto& [table, writers] : fillers) table->fillerCountIs(writers);
  }
  for (const Operator& one : operators_) host(one);
  reader_ = std::make_unique<OutputReader>(*database_, operators_.back().output(), options_.standing);
  reader_->printHeader();
}

void Run::host(const Operator& plan) {
  try {
    hosted_.push_back(std::make_unique<HostedOperator>(
        plan, database_->database(), [this](const std::string& text) { reportFailure(text); }));
  } catch (const std::exception& error) {
    fail(plan.path + ": " + error.what());
  }
}

// Rows that were inserted before are printed before.
void Run::reportFailure(const std::string& text) {
  ++failures_;
  reader_->drain();
  flushOutput();
  report(text);
}

bool Run::isOver() const { return failures_ == operators_.size() || (options_.failFast && failures_ != 0); }

bool Run::step() { return !isOver() && database_->database().scheduler().step(); }

void Run::oneShot(Progress& progress) {
  while (!reader_->ended() && step()) progress.countIs(reader_->rowsOut());
  if (!reader_->ended() && !hasFailed()) fail(operators_.back().path + ": ended without an end-of-data mark");
}

void Run::standing(CsvReader& eventFile, Progress& progress) {
  // Whoever writes the events line by line sees what came of one before the next is waited for.
  eventFile.waitHandlerIs(flushOutput);
  EventReader events(database_, eventFile, outputs());
  std::size_t count = 0;
  do {
    while (step()) {
    }
    progress.countIs(count++);
  } while (!isOver() && events.applyNext());
  rowsIn_ += events.rowsIn();
  if (operators_.size() > 1) endTables();
}

// No more events: what a standing operator has written is all that its table will hold, and whoever waits for
// that can begin.
void Run::endTables() {
  for (const std::size_t number : flow_) {
    const Operator& one = operators_[number];
    if (isOver() || !one.standing || hosted_[number]->hasFailed()) continue;
    TvTableInterface writer(one.output().name() + "-End", "", TvTableInterface::writeMode, {}, {}, {}, {});
    database_->bindInterface(writer, one.output().name(), false);
    BaseRow endOfData;
    writer.rowIs(endOfData);
    while (step()) {
    }
  }
}

void Run::printStats() const {
  const double seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
  std::size_t suspensions = 0;
  for (const Table* const table : outputs()) suspensions += table->refusals();
  std::fprintf(stderr,
               "rows in: %zu, rows out: %zu, deletions: %zu, suspensions: %zu, time: %.6f s, rows/s: %.0f\n",
               rowsIn_, reader_->rowsOut(), reader_->deletions(), suspensions, seconds,
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

std::size_t readCapacity(const std::string& option, const std::string& text) {
  std::size_t rows = 0;
  const char* const end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data(), end, rows);
  if (error != std::errc() || behind != end || rows == 0 || rows > largestCapacity)
    failCommandLine("--capacity " + option + ": '" + text + "' is no number from 1 to " +
                    std::to_string(largestCapacity));
  return rows;
}

TableCapacities readCapacities(const std::vector<std::string>& options) {
  TableCapacities capacities;
  for (const std::string& option : options) {
    const std::size_t sign = option.find('=');
    if (sign == std::string::npos)
      capacities.ofOutputs = readCapacity(option, option);
    else
      capacities.byTable[option.substr(0, sign)] = readCapacity(option, option.substr(sign + 1));
  }
  return capacities;
}

std::vector<Operator> inspectPrograms(const TvPtr<TavroDB>& database, const RunOptions& options,
                                      const std::map<std::string, std::string>& parameters) {
  std::vector<Operator> operators;
  std::set<std::string> taken;
  const bool isPipeline = options.programs.size() > 1;
  for (const std::string& path : options.programs) {
    Operator& one = operators.emplace_back(Operator{path, inspectProgram(database, path)});
    one.standing = options.standing && !(isPipeline && one.program.isOneShot);
    one.client = makeClientMap(one.program, parameters, taken);
  }
  for (const auto& [name, text] : parameters)
    if (!taken.contains(name))
      failCommandLine("--param " + name +
                      (isPipeline ? ": no program has such a parameter or table path"
                                  : ": the program has no such parameter and no such table path"));
  return operators;
}

// A progress line must not stand between the rows of the output, nor before somebody who types events.
bool mayShowRun(const RunOptions& options) {
  return isatty(STDOUT_FILENO) == 0 &&
         (!options.standing || options.events != standardInput || isatty(STDIN_FILENO) == 0);
}

constexpr const char* footer =
    R"(Several programs make a pipeline: the output table of one may be an input of others. Each is an operator of
its own, started in the order given; their tables must not form a cycle. A one-shot program begins when the
programs that write its input tables have ended. With --standing all programs react to what comes, but those
whose properties say isOneShot=true, which begin when the events have ended. A program that fails ends alone,
and what it has written stays.

Indexes of a table are numbered from 1 in the order in which they are given. An index over columns is
ordered by them and not unique. One by program is ordered if the program defines the entry "less", else
rows are found by its "hash" and "equals". If it defines "autoUpdate" it has one row per key, and a row
whose key is in the table, in this index or in index 0, is merged into the one that is there.

Table files are CSV. Their first record declares the columns, "name type" or "name type key" each:
  id uint32_t key,price double,tags string_t[]

--stats writes one line to standard error:
  rows in: N, rows out: N, deletions: N, suspensions: N, time: SECONDS s, rows/s: N
where rows in are those of the tables that no program writes, from files and events, suspensions is how often
an output table was full, and time is that of the run, without loading.

Exit status: 0 the query ran to its end, 1 a program, its data or its run failed, 2 wrong command line.

Example: the rows of in.csv above a limit
  tvop run above.tva --table demo::in=in.csv --table demo::out=out.csv --param limit=10)";

}  // namespace

CLI::App* addRunCommand(CLI::App& app, RunOptions& options) {
  CLI::App* const run =
      app.add_subcommand("run", "Run programs over tables and print the last one's output table");
  const auto addList = [run](const char* name, std::vector<std::string>& values, const char* form,
                             const char* text) {
    run->add_option(name, values, text)->allow_extra_args(false)->type_name(form)->option_text(form);
  };
  run->add_option("PROGRAM", options.programs, "The operators' programs, .tva files")
      ->required()
      ->option_text("...");
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
  addList("--capacity", options.capacities, "N | TABLE=N",
          "Let every output table, or one table, take N rows, then block");
  run->add_option(
         "--seed", options.seed,
         "Run operators in a random order, always the same for the\nsame number, to find what depends on it")
      ->option_text("N");
  run->add_flag("--fail-fast", options.failFast, "End everything when one operator fails");
  addList("--trace", options.traces, "CATEGORY=LEVEL[,LEVEL...]",
          "Levels of a debug category to trace on standard error");
  run->add_flag("--stats", options.stats, "Write one line of figures to standard error at the end");
  run->footer(footer);
  return run;
}

bool runPrograms(const RunOptions& options) {
  for (const std::string& path : options.programs) requireProgramName(path, command);
  TableOptions tableOptions = readTableOptions(options);
  const TableCapacities capacities = readCapacities(options.capacities);
  const auto parameters = readNamedValues("--param NAME=VALUE", options.parameters);
  const std::vector<TraceLevel> traces = readTraceLevels(options.traces);

  bufferOutput();
  const TvPtr<TavroDB> database = getTavroDb();
  loadIndexPrograms(database, tableOptions);
  std::vector<Operator> operators = inspectPrograms(database, options, parameters);
  const std::unique_ptr<CsvReader> events = openEvents(options);
  const bool isTerminal = isatty(STDERR_FILENO) != 0;
  const std::size_t rowsIn = [&] {
    Progress progress(isTerminal);
    return loadTables(*database, operators, tableOptions, progress);
  }();
  limitTables(operators, capacities);

  turnOn(traces);
  Run run(options, database, operators, rowsIn);
  run.start();
  {
    Progress progress(isTerminal && mayShowRun(options));
    progress.stageIs("running");
    events != nullptr ? run.standing(*events, progress) : run.oneShot(progress);
  }
  flushOutput();
  if (options.stats && !run.hasFailed()) run.printStats();
  return !run.hasFailed();
}

}  // namespace Tavro::Tool
