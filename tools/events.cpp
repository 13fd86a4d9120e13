#include "events.h"

#include <span>
#include <utility>

#include "tableFile.h"

namespace Tavro::Tool {

EventReader::EventReader(TvPtr<TavroDB> database, CsvReader& source, std::set<const Table*> outputs)
    : database_(std::move(database)), source_(source), outputs_(std::move(outputs)) {}

bool EventReader::applyNext() {
  if (!source_.next()) return false;
  const std::span<const CsvCell> cells = source_.cells();
  const CsvCell& sign = cells[0];
  if (sign.text != "+" && sign.text != "-")
    source_.failAt(sign.at, "an event begins with + or -, not with '" + std::string(sign.text) + "'");
  if (cells.size() < 2) source_.failAt(sign.at, "an event names its table behind the sign");
  const Target& target = targetOf(cells[1]);
  BaseRow row = readRow(*target.table, source_, cells.subspan(2));
  if (sign.text == "+")
    insert(target, std::move(row));
  else
    erase(target, row);
  return true;
}

EventReader::Target& EventReader::targetOf(const CsvCell& cell) {
  const std::string name(cell.text);
  const auto known = targets_.find(name);
  if (known != targets_.end()) return known->second;
  Table* const table = database_->database().findTable(name);
  if (table == nullptr) source_.failAt(cell.at, "no table '" + name + "' in this run");
  auto interface = std::make_unique<TvTableInterface>(name + "-Events", "", TvTableInterface::writeMode,
                                                      nullptr, nullptr, nullptr, nullptr);
  database_->bindInterface(*interface, name, false);
  return targets_.emplace(name, Target{table, std::move(interface)}).first->second;
}

void EventReader::insert(const Target& target, BaseRow row) {
  try {
    target.interface->rowIs(row);
  } catch (const TvOutOfRange& error) {
    source_.failAt(source_.cells().front().at, error.what());
  }
  if (!outputs_.contains(target.table)) ++rowsIn_;
}

void EventReader::erase(const Target& target, const BaseRow& row) {
  if (target.interface->find(row, 0) == target.interface->end(0))
    source_.failAt(source_.cells().front().at,
                   "table " + target.table->name() + " has no such row to delete");
  target.interface->rowDel(row);
}

}  // namespace Tavro::Tool
