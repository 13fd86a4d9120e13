#include "clientMap.h"

#include <exception>

#include "failure.h"
#include "tableFile.h"

namespace Tavro::Tool {

namespace {

// Stores the value into a row of its own, to see whether it can be stored at all.
void checkValue(const std::string& name, const tvMetadata::tvColumn& column, const std::string& text) {
  constexpr len_t widestColumn = 16;
  constexpr len_t fixedLength = tv_contentOffset + widestColumn;
  const tvMetadata::tvColumn scratch("", name, column.tvType(), column.structType(), column.length(), 0,
                                     column.isArray(), 0, tv_contentOffset, false, false);
  BaseRow row(fixedLength);
  try {
    storeCell(row, scratch, text, fixedLength);
  } catch (const std::exception& error) {
    fail("parameter " + name + ": " + error.what());
  }
}

}  // namespace

ClientMap makeClientMap(const Program& program, const std::map<std::string, std::string>& given,
                        std::set<std::string>& taken) {
  ClientMap map;
  for (const auto& [name, text] : given) {
    const auto parameter = program.parameters.find(name);
    if (parameter != program.parameters.end()) {
      checkValue(name, parameter->second, text);
      map[name] = text;
      taken.insert(name);
      continue;
    }
    for (const ProgramTable& table : program.tables) {
      if (name != table.pathKey() && name != table.name) continue;
      // With an alias a name says more than without.
      if (name == table.pathKey() || !given.contains(table.pathKey())) map[table.pathKey()] = text;
      taken.insert(name);
    }
  }
  return map;
}

}  // namespace Tavro::Tool
