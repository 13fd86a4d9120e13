#include "runTables.h"

#include <filesystem>
#include <map>
#include <numeric>
#include <set>
#include <stdexcept>
#include <utility>

#include "csvReader.h"
#include "failure.h"
#include "tableFile.h"

namespace Tavro::Tool {

namespace {

// The tables that a path may mean: the whole of it, or what stands before its alias.
std::vector<std::string> candidatesFor(const ProgramTable& table, const ClientMap& client) {
  const auto redirected = client.find(table.pathKey());
  if (redirected == client.end()) return {table.name};
  const std::string& path = redirected->second;
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) return {path};
  return {path, path.substr(0, dot)};
}

std::string fileInDirectory(const std::string& directory, const std::string& table) {
  std::string file = table + ".csv";
  for (std::size_t at = file.find("::"); at != std::string::npos; at = file.find("::", at))
    file.replace(at, 2, ".");
  return (std::filesystem::path(directory) / file).string();
}

struct TableSource {
  std::string table;
  std::string file;
};

TableSource sourceOf(const std::vector<std::string>& candidates, const TableOptions& options) {
  for (const std::string& name : candidates) {
    const auto file = options.files.find(name);
    if (file != options.files.end()) return {name, file->second};
  }
  const std::string& last = candidates.back();
  if (options.directory.empty()) fail("table " + last + ": no file given (--table " + last + "=FILE)");
  for (const std::string& name : candidates)
    if (const std::string file = fileInDirectory(options.directory, name); std::filesystem::exists(file))
      return {name, file};
  return {last, fileInDirectory(options.directory, last)};
}

[[noreturn]] void failOnUnboundTable(const std::string& option, const std::string& table,
                                     std::size_t programs) {
  failCommandLine(option + " " + table + ": " +
                  (programs == 1 ? "the program binds no such table" : "no program binds such a table"));
}

void checkFilesAreUsed(const std::vector<Operator>& operators, const TableOptions& options) {
  std::set<std::string> meant;
  for (const Operator& one : operators)
    for (const ProgramTable& table : one.program.tables)
      for (const std::string& name : candidatesFor(table, one.client)) meant.insert(name);
  for (const auto& [name, file] : options.files)
    if (!meant.contains(name)) failOnUnboundTable("--table", name, operators.size());
}

void checkIndexesAreUsed(const std::set<std::string>& tables, const TableOptions& options,
                         std::size_t programs) {
  for (const IndexOption& index : options.indexes)
    if (!tables.contains(index.table)) failOnUnboundTable("--index", index.table, programs);
}

void checkLength(const ProgramTable& bound, const Table& table, const std::string& file) {
  if (bound.length == table.fixedLength()) return;
  fail("table " + table.name() + ": bindTable gives rows of " + std::to_string(bound.length) +
       " bytes, but the columns of " + file + " make rows of " + std::to_string(table.fixedLength()));
}

void addIndexes(Table& table, const TableOptions& options) {
  bool merges = false;
  for (const IndexOption& index : options.indexes) {
    if (index.table != table.name()) continue;
    const std::string option = "--index " + index.table + "=" + index.text;
    try {
      if (index.rules == nullptr) {
        table.addIndex(splitAtCommas(index.text));
        continue;
      }
      index.program.checkFits(table);
      table.addIndex(index.rules);
    } catch (const std::invalid_argument& error) {
      failCommandLine(option + ": " + error.what());
    }
    if (!index.program.operations.contains("autoUpdate")) continue;
    if (std::exchange(merges, true)) failCommandLine(option + ": a second program with autoUpdate");
    table.autoUpdateIs(index.rules);
  }
}

// The table that a program binds; one that another has bound already is there.
Table& makeTable(TavroDB& database, const TableSource& source, const ProgramTable& bound,
                 const TableOptions& options, Progress& progress, std::map<Table*, std::size_t>& rows) {
  if (Table* const known = database.database().findTable(source.table)) {
    checkLength(bound, *known, source.file);
    return *known;
  }
  CsvReader file(source.file);
  Table& table = createTable(database.database(), source.table, file);
  checkLength(bound, table, source.file);
  addIndexes(table, options);
  progress.stageIs("loading " + source.file);
  rows[&table] = loadRows(database, table, file, progress);
  return table;
}

void requireRules(const RowOpsProgram& program) {
  const std::set<std::string>& defined = program.operations;
  if (!defined.contains("less") && !(defined.contains("hash") && defined.contains("equals")))
    fail(program.path + ": an index needs the entry less, or the entries hash and equals");
}

}  // namespace

void loadIndexPrograms(const TvPtr<TavroDB>& database, TableOptions& options) {
  constexpr char programMark = '@';
  std::map<std::string, unsigned short> numbers;
  for (IndexOption& index : options.indexes) {
    const unsigned short number = ++numbers[index.table];
    if (!index.text.starts_with(programMark)) continue;
    const std::string path = index.text.substr(1);
    requireProgramName(path, "tvop run");
    index.program = inspectRowOps(database, path);
    requireRules(index.program);
    index.rules = loadRowOps(index.program, number);
  }
}

std::size_t loadTables(TavroDB& database, std::vector<Operator>& operators, const TableOptions& options,
                       Progress& progress) {
  checkFilesAreUsed(operators, options);
  std::vector<std::vector<TableSource>> sources;
  std::set<std::string> names;
  for (const Operator& one : operators) {
    sources.emplace_back();
    for (const ProgramTable& table : one.program.tables) {
      sources.back().push_back(sourceOf(candidatesFor(table, one.client), options));
      names.insert(sources.back().back().table);
    }
  }
  checkIndexesAreUsed(names, options, operators.size());

  std::map<Table*, std::size_t> rows;
  for (std::size_t i = 0; i < operators.size(); ++i)
    for (std::size_t j = 0; j < sources[i].size(); ++j) {
      Table& table =
          makeTable(database, sources[i][j], operators[i].program.tables[j], options, progress, rows);
      operators[i].tables.push_back(&table);
    }
  for (const Operator& one : operators) rows.erase(&one.output());
  return std::accumulate(rows.begin(), rows.end(), std::size_t{0},
                         [](std::size_t sum, const auto& table) { return sum + table.second; });
}

void limitTables(const std::vector<Operator>& operators, const TableCapacities& capacities) {
  std::map<std::string, Table*> tables;
  for (const Operator& one : operators)
    for (Table* const table : one.tables) tables[table->name()] = table;
  for (const Operator& one : operators) one.output().capacityIs(capacities.ofOutputs);
  for (const auto& [name, rows] : capacities.byTable) {
    const auto table = tables.find(name);
    if (table == tables.end()) failOnUnboundTable("--capacity", name, operators.size());
    table->second->capacityIs(rows);
  }
}

}  // namespace Tavro::Tool
