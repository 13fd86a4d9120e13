#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "pipeline.h"

namespace Tavro::Simulation {

struct Change {
  bool isInsertion;
  Row row;
};

// What the tables of a pipeline hold once everything has been done that follows from the changes so far.
class Reference {
 public:
  explicit Reference(const Pipeline& pipeline) {
    for (const TableSpec& spec : pipeline.tables) tables_.push_back({spec, {}});
    for (const OperatorSpec& spec : pipeline.operators) operators_.push_back({spec});
  }

  // In the order of the key or of arrival.
  const std::vector<Row>& rows(std::size_t table) const { return tables_[table].rows; }
  bool hasEnded(std::size_t table) const { return tables_[table].hasEnded; }
  bool hasFailed(std::size_t number) const { return operators_[number].hasFailed; }

  void apply(std::size_t table, const Change& change) {
    for (const Change& told : changed(tables_[table], change))
      for (OperatorState& reader : operators_)
        if (reader.lives() && !reader.spec.isOneShot) react(reader, table, told);
  }

  // The end of data of one of the table's writers.
  void end(std::size_t table) {
    TableState& ended = tables_[table];
    ended.hasEnded = ++ended.ends == ended.spec.fillers;
    for (OperatorState& reader : operators_)
      if (reader.spec.isOneShot && hasEnded(reader.spec.in) && hasEnded(reader.spec.lookup)) runOnce(reader);
  }

  // The operator is no more.
  void drop(std::size_t number) { operators_[number].isGone = true; }

 private:
  struct TableState {
    TableSpec spec;
    std::vector<Row> rows;
    unsigned ends = 0;
    bool hasEnded = false;
  };
  struct OperatorState {
    OperatorSpec spec;
    bool hasFailed = false;
    bool isGone = false;
    bool hasRun = false;
    bool lives() const { return !hasFailed && !isGone; }
  };

  // Makes the change and returns what readers hear of it.
  static std::vector<Change> changed(TableState& table, const Change& change) {
    std::vector<Row>& rows = table.rows;
    const bool hasKey = table.spec.hasKey;
    std::vector<Change> told;
    const auto named = std::find_if(rows.begin(), rows.end(), [&](const Row& row) {
      return hasKey ? row.key == change.row.key : !change.isInsertion && row == change.row;
    });
    if (named != rows.end()) {
      told.push_back({false, *named});
      rows.erase(named);
    }
    if (!change.isInsertion) return told;
    rows.insert(hasKey ? std::lower_bound(rows.begin(), rows.end(), change.row) : rows.end(), change.row);
    told.push_back(change);
    return told;
  }

  void react(OperatorState& reader, std::size_t table, const Change& change) {
    const OperatorSpec& spec = reader.spec;
    if (table == spec.in)
      change.isInsertion ? emit(reader, change.row) : apply(spec.out, change);
    else if (table == spec.lookup)
      for (const Row& row : rows(spec.in))
        if (row.value == change.row.key) apply(spec.out, {true, {row.key, change.row.value}});
  }

  void emit(OperatorState& reader, const Row& row) {
    const OperatorSpec& spec = reader.spec;
    reader.hasFailed = row.value == spec.poison;
    if (reader.hasFailed) return;
    switch (spec.kind) {
      case Kind::filter:
        if (row.value < spec.constant || spec.deletesRest) apply(spec.out, {row.value < spec.constant, row});
        break;
      case Kind::project:
        apply(spec.out, {true, {row.key, (row.value + spec.constant) % values}});
        break;
      case Kind::expand:
        apply(spec.out, {true, row});
        apply(spec.out, {true, {row.key + copyDistance, row.value}});
        break;
      case Kind::join:
        for (const Row& found : rows(spec.lookup))
          if (found.key == row.value) apply(spec.out, {true, {row.key, found.value}});
    }
  }

  void runOnce(OperatorState& reader) {
    if (std::exchange(reader.hasRun, true)) return;
    for (const Row& row : rows(reader.spec.in))
      if (reader.lives()) emit(reader, row);
    if (reader.lives()) end(reader.spec.out);
  }

  std::vector<TableState> tables_;
  std::vector<OperatorState> operators_;
};

}  // namespace Tavro::Simulation
