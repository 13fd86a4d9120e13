#include "runTables.h"

#include <filesystem>
#include <memory>
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

[[noreturn]] void failOnUnboundTable(const std::string& option, const std::string& table) {
  failCommandLine(option + " " + table + ": the program binds no such table");
}

void checkFilesAreUsed(const Program& program, const ClientMap& client, const TableOptions& options) {
  std::set<std::string> meant;
  for (const ProgramTable& table : program.tables)
    for (const std::string& name : candidatesFor(table, client)) meant.insert(name);
  for (const auto& [name, file] : options.files)
    if (!meant.contains(name)) failOnUnboundTable("--table", name);
}

void checkIndexesAreUsed(const std::vector<TableSource>& sources, const TableOptions& options) {
  std::set<std::string> used;
  for (const TableSource& source : sources) used.insert(source.table);
  for (const IndexOption& index : options.indexes)
    if (!used.contains(index.table)) failOnUnboundTable("--index", index.table);
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

RunTables loadTables(TavroDB& database, const Program& program, const ClientMap& client,
                     const TableOptions& options, Progress& progress) {
  checkFilesAreUsed(program, client, options);
  std::vector<TableSource> sources;
  for (const ProgramTable& table : program.tables)
    sources.push_back(sourceOf(candidatesFor(table, client), options));
  checkIndexesAreUsed(sources, options);

  RunTables loaded{nullptr, 0};
  Database& tables = database.database();
  for (std::size_t i = 0; i < sources.size(); ++i) {
    const auto& [name, path] = sources[i];
    Table* table = tables.findTable(name);
    const bool isNew = table == nullptr;
    std::unique_ptr<CsvReader> file;
    if (isNew) {
      file = std::make_unique<CsvReader>(path);
      table = &createTable(tables, name, *file);
    }
    checkLength(program.tables[i], *table, path);
    if (i == 0) loaded.output = table;
    if (!isNew) continue;
    addIndexes(*table, options);
    progress.stageIs("loading " + path);
    const std::size_t rows = loadRows(database, *table, *file, progress);
    if (table != loaded.output) loaded.rowsIn += rows;
  }
  return loaded;
}

}  // namespace Tavro::Tool
