#include "rowopsCommand.h"

#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <map>

#include "csvReader.h"
#include "failure.h"
#include "namedValues.h"
#include "progress.h"
#include "rowOpsProgram.h"
#include "tableFile.h"
#include "tablePrinter.h"

namespace Tavro::Tool {

namespace {

constexpr const char* command = "tvop rowops";

// The one file that is asked for.
std::string fileOf(const RowOpsProgram& program, const std::map<std::string, std::string>& files) {
  const std::string& table = program.operands[0].name;
  for (const auto& [name, file] : files)
    if (name != table) failCommandLine("--table " + name + ": slot 1 of the program is " + table, command);
  if (files.empty()) fail("table " + table + ": no file given (--table " + table + "=FILE)");
  return files.begin()->second;
}

void printHashes(RowOpsBase& rules, const TvTableInterface& rows) {
  for (TvRowIterator row = rows.begin(0); row != rows.end(0); ++row) std::printf("%u\n", rules.hash(*row));
}

void printComparisons(RowOpsBase& rules, bool (RowOpsBase::*compare)(const BaseRow&, const BaseRow&),
                      const TvTableInterface& rows) {
  TvRowIterator row = rows.begin(0);
  if (row == rows.end(0)) return;
  for (TvRowIterator next = row; ++next != rows.end(0); row = next)
    std::puts((rules.*compare)(*row, *next) ? "true" : "false");
}

void printMerged(RowOpsBase& rules, const Table& table, TvTableInterface& rows) {
  TablePrinter printer(table);
  printer.printHeader("");
  TvRowIterator row = rows.begin(0);
  if (row == rows.end(0)) return;
  BaseRow merged = *row;
  while (++row != rows.end(0)) rules.autoUpdate(merged, *row);
  // The table refuses what is no row of its own and could not be read.
  rows.rowIs(merged);
  printer.printRow("", merged);
}

}  // namespace

CLI::App* addRowopsCommand(CLI::App& app, RowopsOptions& options) {
  CLI::App* const rowops =
      app.add_subcommand("rowops", "Run an operation of an index program over the rows of a table");
  rowops->add_option("OPS", options.program, "The program with the operations, a .tva file")
      ->required()
      ->option_text(" ");
  rowops->add_option("--table", options.tables, "The file of the table that the program binds in slot 1")
      ->allow_extra_args(false)
      ->type_name("NAME=FILE")
      ->option_text("NAME=FILE");
  rowops
      ->add_option("OPERATION", options.operation,
                   "hash prints a number for each row; equals and less print true or\n"
                   "false for each row and its successor; autoUpdate prints the row that\n"
                   "comes of merging all others into the first")
      ->required()
      ->check(CLI::IsMember({"hash", "equals", "less", "autoUpdate"}).description(""))
      ->option_text(" ");
  rowops->footer(
      R"(Rows are taken in the order of index 0: that of the key columns, or of the file when there are none.

Example: which rows of in.csv are less than the next
  tvop rowops byName.tva --table demo::in=in.csv less)");
  return rowops;
}

void runRowOps(const RowopsOptions& options) {
  requireProgramName(options.program, command);
  const auto files = readNamedValues("--table NAME=FILE", options.tables, command);
  bufferOutput();
  const TvPtr<TavroDB> database = getTavroDb();
  const RowOpsProgram program = inspectRowOps(database, options.program);
  const std::string path = fileOf(program, files);
  if (!program.operations.contains(options.operation))
    fail(options.program + ": the program defines no entry " + options.operation);

  CsvReader file(path);
  Table& table = createTable(database->database(), program.operands[0].name, file);
  program.checkFits(table);
  {
    Progress progress(isatty(STDERR_FILENO) != 0);
    progress.stageIs("loading " + path);
    loadRows(*database, table, file, progress);
  }
  TvTableInterface rows("rows", "", TvTableInterface::writeMode, {}, {}, {}, {});
  database->bindInterface(rows, table.name(), false);
  const TvPtr<RowOpsBase> rules = loadRowOps(program, 0);
  if (options.operation == "hash")
    printHashes(*rules, rows);
  else if (options.operation == "autoUpdate")
    printMerged(*rules, table, rows);
  else
    printComparisons(*rules, options.operation == "less" ? &RowOpsBase::less : &RowOpsBase::equals, rows);
  flushOutput();
}

}  // namespace Tavro::Tool
