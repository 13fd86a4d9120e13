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
    for (const TablePlan& plan : pipeline.tables) tables_.push_back({plan, {}});
    for (const OperatorPlan& plan : pipeline.operators) operators_.push_back({plan});
  }

  // In the order of the key or of arrival.
  const std::vector<Row>& rows(std::size_t table) const { return tables_[table].rows; }
  bool hasEnded(std::size_t table) const { return tables_[table].hasEnded; }
  bool hasFailed(std::size_t number) const { return operators_[number].hasFailed; }

  void apply(std::size_t table, const Change& change) {
    for (const Change& told : changed(tables_[table], change))
      for (OperatorState& reader : operators_)
        if (reader.lives() && !reader.plan.isOneShot) react(reader, table, told);
  }

  // The end of data of one of the table's writers.
  void end(std::size_t table) {
    TableState& ended = tables_[table];
    ended.hasEnded = ++ended.ends == ended.plan.fillers;
    for (OperatorState& reader : operators_)
      if (reader.plan.isOneShot && hasEnded(reader.plan.in) && hasEnded(reader.plan.lookup)) runOnce(reader);
  }

  // The operator is no more.
  void drop(std::size_t number) { operators_[number].isGone = true; }

 private:
  struct TableState {
    TablePlan plan;
    std::vector<Row> rows;
    unsigned ends = 0;
    bool hasEnded = false;
  };
  struct OperatorState {
    OperatorPlan plan;
    bool hasFailed = false;
    bool isGone = false;
    bool hasRun = false;
    bool lives() const { return !hasFailed && !isGone; }
  };

  // Makes the change and returns what readers hear of it.
  static std::vector<Change> changed(TableState& table, const Change& change) {
    std::vector<Row>& rows = table.rows;
    const bool hasKey = table.plan.hasKey;
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
    const OperatorPlan& plan = reader.plan;
    if (table == plan.in)
      change.isInsertion ? emit(reader, change.row) : apply(plan.out, change);
    else if (table == plan.lookup)
      for (const Row& row : rows(plan.in))
        if (row.value == change.row.key) apply(plan.out, {true, {row.key, change.row.value}});
  }

  void emit(OperatorState& reader, const Row& row) {
    const OperatorPlan& plan = reader.plan;
    reader.hasFailed = row.value == plan.poison;
    if (reader.hasFailed) return;
    switch (plan.kind) {
      case Kind::filter:
        if (row.value < plan.constant || plan.deletesRest) apply(plan.out, {row.value < plan.constant, row});
        break;
      case Kind::project:
        apply(plan.out, {true, {row.key, (row.value + plan.constant) % values}});
        break;
      case Kind::expand:
        apply(plan.out, {true, row});
        apply(plan.out, {true, {row.key + copyDistance, row.value}});
        break;
      case Kind::join:
        for (const Row& found : rows(plan.lookup))
          if (found.key == row.value) apply(plan.out, {true, {row.key, found.value}});
    }
  }

  void runOnce(OperatorState& reader) {
    if (std::exchange(reader.hasRun, true)) return;
    for (const Row& row : rows(reader.plan.in))
      if (reader.lives()) emit(reader, row);
    if (reader.lives()) end(reader.plan.out);
  }

  std::vector<TableState> tables_;
  std::vector<OperatorState> operators_;
};

}  // namespace Tavro::Simulation
