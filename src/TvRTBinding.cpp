// The tables, rows and parameters of a context.

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "Tavro/TvRTContext.h"
#include "Tavro/TvRTProxy.h"
#include "Tavro/TvRTValueIter.h"

namespace Tavro::TvRT {

namespace {

constexpr const char* sourceName = "TvRTContext";

// Appends the tokens between delimiters, less the empty ones, and returns how many there are now. Not by a
// stream, which would take want of memory for the end of the text.
std::size_t split(const std::string& text, char delimiter, std::vector<std::string>& tokens) {
  for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
    end = std::min(text.find(delimiter, begin), text.size());
    if (end > begin) tokens.push_back(text.substr(begin, end - begin));
  }
  return tokens.size();
}

std::string withoutEnds(const std::string& text) {
  if (text.empty())
    throw std::out_of_range("an empty text where a declaration in brackets or quotes belongs");
  return text.substr(1, text.size() - 2);
}

bool isTrue(const std::string& value) { return TvStrUtils::iequals(value, "true"); }

}  // namespace

TableBindInfo::TableBindInfo(TavroDB& database, len_t slot, len_t length, len_t outNumber,
                             const std::string& tableName, const std::string& tableAlias,
                             const std::string& signature)
    : index(slot),
      len(length),
      outIndex(outNumber),
      name(tableName),
      alias(tableAlias),
      sig(signature),
      rowType(database.tableTypeId(tableName, false)) {}

std::string TableBindInfo::toString() const {
  std::ostringstream text;
  text << "TableBindInfo[index: " << index << ", outIndex: " << outIndex << ", len: " << len
       << ", name: " << name << ", alias: " << alias << ", sig: " << sig << ", rowType: " << rowType << "]";
  return text.str();
}

void Context::bindTable(len_t index, len_t len, len_t outIndex, const std::string& name,
                        const std::string& alias, const std::string& sig) {
  Kelpo::trace(debug.handler(), traceDetail, sourceName, __LINE__, "bindTable", [&](std::ostream& text) {
    text << "void Tavro::TvRT::Context::bindTable(Tavro::len_t, Tavro::len_t, Tavro::len_t, const string&, "
            "const string&, const string&)"
         << " registering " << name << " table = " << index << " alias = " << alias << " sig = " << sig;
  });
  maxRowLen = std::max(maxRowLen, len);
  // In 16 bits on purpose: slot 65535 does not exist.
  const auto slots = static_cast<len_t>(index + 1);
  if (slots <= rows.size()) return;
  BaseRow row(len);
  auto info = std::make_unique<TableBindInfo>(*database, index, len, outIndex, name, alias, sig);
  tbis.resize(slots);
  rows.resize(slots);
  rows[index] = {std::move(row), len};
  tbis[index] = info.release();
}

len_t Context::constructPseudoBindTableInfo(const std::string& name) {
  const auto slot = static_cast<len_t>(rows.size());
  bindTable(slot, maxRowLen, 0, "__noNS__::" + name, "__keyRow__", "__noSig__");
  replaceRow(slot, BaseRow(maxRowLen));
  return slot;
}

void Context::endEncountered() {
  keyRowIdx = constructPseudoBindTableInfo("__keyRow__");
  deletedRowIdx = constructPseudoBindTableInfo("__deletedRow__");
  paramRowIdx = constructPseudoBindTableInfo("__paramRow__");
  constRowIdx = constructPseudoBindTableInfo("__constRow__");
  tempRowIdx = constructPseudoBindTableInfo("__tempRow__");
}

void Context::deleteBindings() {
  for (TableBindInfo* const info : tbis) delete info;
  tbis.clear();
  for (RowSlot& slot : rows) slot.fixedLength = 0;
}

void Context::bindParameters(len_t len, const std::string& text) {
  paramRowLen = len;
  paramRow = BaseRow(len);
  std::vector<std::string> declarations;
  split(withoutEnds(text), ',', declarations);
  for (const std::string& declaration : declarations) {
    std::vector<std::string> fields;
    if (split(declaration, ':', fields) < 3)
      throw std::invalid_argument("bad parameter declaration: " + declaration);
    std::string name = withoutEnds(fields[0]);
    const bool isArray = name.find("[]") != std::string::npos;
    if (isArray) name.resize(name.size() - 2);
    const TavroTypes type = tavroCppTypeNameToType(withoutEnds(fields[2]));
    const auto offset = static_cast<unsigned short>(std::strtoul(fields[1].c_str(), nullptr, 0));
    const auto code = static_cast<unsigned short>(type);
    paramColumns[name] = tvMetadata::tvColumn("internal::parameter", name, code, 0, getTavroTypeLength(code),
                                              0, isArray, 0, offset, false, false);
  }
}

void Context::bindTemporaries(len_t len, const std::string&) {
  tempRowLen = len;
  tempRow = BaseRow(len);
}

void Context::setProperties(const std::string& text) {
  std::vector<std::string> properties;
  split(text, ',', properties);
  isFilter = false;
  isOneShot = false;
  for (const std::string& property : properties) {
    std::vector<std::string> parts;
    if (split(property, '=', parts) != 2) {
      std::cerr << "bad property entry: " << property << std::endl;
      continue;
    }
    const std::string key = TvStrUtils::trim(parts[0]);
    const bool value = isTrue(TvStrUtils::trim(parts[1]));
    if (TvStrUtils::iequals(key, "isOneShot"))
      isOneShot = value;
    else if (TvStrUtils::iequals(key, "isFilter"))
      isFilter = value;
    else
      std::cerr << key << " is not a supported parameter.  "
                << "Only isOneShot and isFilter are currently supported." << std::endl;
  }
}

void Context::setParameter(const std::string& name, const std::string& value) {
  const auto found = paramColumns.find(name);
  if (found == paramColumns.end()) return;
  const tvMetadata::tvColumn& column = found->second;
  storeColumnFromString(paramRow, column.offset(), column.tvType(), column.structType(), column.isArray(),
                        value, paramRowLen);
}

void Context::throwNoRow() {
  throw std::out_of_range("Attempt to access row ourside of numberof tables used by query.");
}

void Context::throwNoBinding() { throw std::out_of_range("attempt to index non-existent row"); }

void Context::throwNoSlot() {
  throw std::out_of_range("attempt to replace row outside of number of rows in query");
}

void Context::swapRow(len_t index, BaseRow& row) { slotToReplace(index).swap(row); }

void Context::clearRow(len_t index) {
  const TableBindInfo* const info = tableBindInfo(index);
  if (index >= rows.size() || info == nullptr) throwNoBinding();
  BaseRow fresh = info->freshRow();
  rows[index].row.swap(fresh);
}

void Context::throwNoHost(const char* what, len_t table) {
  throw std::out_of_range("attempt to index non-existent " + std::string(what) + ": " +
                          std::to_string(table));
}

void Context::lower_bound(len_t table, len_t index) {
  host("input row", table).lower_bound(table, keyRow(), index);
}

void Context::begin(len_t table, len_t index) { host("input row", table).begin(table, index); }

void Context::deleteRow(len_t table, len_t index) {
  if (table >= rows.size()) throwNoBinding();
  host("table", table).deleteRow(rows[table].row, index);
  clearRow(table);
}

std::string Context::genWCName(len_t table, const std::string& suffix) {
  return "t" + std::to_string(table) + suffix;
}

len_t Context::findRowEntry(len_t table) const {
  const len_t entry = translateEntry(genWCName(table, "row.wc"));
  if (table >= rowEntries.size()) rowEntries.resize(std::size_t{table} + 1, -1);
  rowEntries[table] = entry;
  return entry;
}

len_t Context::onDelWC(len_t table) const { return translateEntry(genWCName(table, "del.wc")); }

len_t Context::onReadyWC(len_t table) const { return translateEntry(genWCName(table, "rdy.wc")); }

len_t Context::projRowWC(len_t table, bool upper) const {
  return translateEntry(genWCName(table, upper ? "pru.wc" : "prl.wc"));
}

void Context::setIterCount(len_t count) {
  const std::size_t slots = std::size_t{count} + 1;
  // What the entry behind the slots holds does not come into a slot.
  const std::size_t kept = std::min(slots, valueIters.empty() ? 0 : valueIters.size() - 1);
  for (std::size_t i = kept; i < valueIters.size(); ++i) delete std::exchange(valueIters[i], nullptr);
  valueIters.resize(slots + 1, nullptr);
}

ValueIterBase* Context::getValueAryIter(len_t index) const {
  if (index >= valueIters.size() || valueIters[index] == nullptr) throwNoIterator(index);
  return valueIters[index];
}

void Context::throwNoIterator(len_t index) {
  throw std::runtime_error(
      "Tavro::TvRT::ValueIterBase* Tavro::TvRT::Context::getValueAryIter(Tavro::len_t)"
      " illegal value iterator index or null iterator: " +
      std::to_string(index));
}

void Context::setValueAryIter(len_t index, ValueIterBase* iterator) {
  if (index >= valueIters.size())
    throw std::runtime_error(
        "void Tavro::TvRT::Context::setValueAryIter(Tavro::len_t, Tavro::TvRT::ValueIterBase*)"
        " illegal value iterator index: " +
        std::to_string(index));
  delete valueIters[index];
  valueIters[index] = iterator;
}

}  // namespace Tavro::TvRT
