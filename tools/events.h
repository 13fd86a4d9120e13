#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include "Tavro/database.h"
#include "csvReader.h"

namespace Tavro::Tool {

// Reads events, one CSV record each, and applies them to the tables: "+,TABLE,value,..." inserts a row,
// "-,TABLE,value,..." deletes one.
class EventReader {
 public:
  // `source` is not owned. Rows inserted into `outputs` do not count as rows in.
  EventReader(TvPtr<TavroDB> database, CsvReader& source, std::set<const Table*> outputs);

  // Applies the next event; false when there are no more. Throws Failure for an event that cannot be applied.
  bool applyNext();

  std::size_t rowsIn() const { return rowsIn_; }

 private:
  // A table with the tool's own connection to it.
  struct Target {
    Table* table;
    std::unique_ptr<TvTableInterface> interface;
  };

  Target& targetOf(const CsvCell& cell);
  void insert(const Target& target, BaseRow row);
  void erase(const Target& target, const BaseRow& row);

  TvPtr<TavroDB> database_;
  CsvReader& source_;
  std::set<const Table*> outputs_;
  std::unordered_map<std::string, Target> targets_;
  std::size_t rowsIn_ = 0;
};

}  // namespace Tavro::Tool
