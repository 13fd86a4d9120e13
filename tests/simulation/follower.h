#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "Tavro/database.h"
#include "Tavro/tvExceptions.h"
#include "pipeline.h"

namespace Tavro::Simulation {

inline constexpr len_t keyColumn = 8;
inline constexpr len_t valueColumn = 12;
inline constexpr len_t rowLength = 16;

inline Row rowOf(const BaseRow& row) {
  Row read{};
  row.getColumn(keyColumn, read.key);
  row.getColumn(valueColumn, read.value);
  return read;
}

inline std::vector<Row> contentsOf(const TvTableInterface& interface) {
  std::vector<Row> rows;
  for (TvRowIterator i = interface.begin(0); i != interface.end(0); ++i) rows.push_back(rowOf(*i));
  return rows;
}

inline std::string textOf(const Row& row) {
  return " " + std::to_string(row.key) + ":" + std::to_string(row.value);
}

// Keeps a copy of a table by what it is told, from the moment of its making. Can be stopped in every way that
// a reader can, and notices what it should not have been told.
class Follower {
 public:
  // `isLate` when the end of data may have been told before.
  Follower(Database& database, const TablePlan& table, bool isLate)
      : table_(table),
        isLate_(isLate),
        client_(database, [this](const std::exception_ptr&) { ++failures_; }) {
    reader_.endHandlerIs([this] {
      mayRefuse();
      ++ends_;
    });
    client_.bind([&] { database.bindInterface(reader_, table.name); });
    reader_.activate(true);
    copy_ = contentsOf(reader_);
    reader_.activate(false);
    reader_.clientReadyIs(true);
  }

  // Does one of the things that stop it or let it go on, and says which.
  std::string act(Random& random) {
    switch (random.below(8)) {
      case 0:
        isActive_ = false;
        reader_.deactivate(true);
        return "stops";
      case 1:
        isActive_ = false;
        reader_.activate(true);
        return "reads";
      case 2:
        reader_.clientReadyIs(false);
        return "is not ready";
      case 3:
        reader_.clientReadyIs(true);
        return "is ready";
      case 4:
        refusals_ = 1 + random.below(3);
        return "refuses " + std::to_string(refusals_);
      case 5:
        failsNext_ = random.oneIn(4);
        return failsNext_ ? "will fail" : "will not fail";
      default:
        wake();
        return "goes on";
    }
  }

  // Lets it go on.
  void wake() {
    refusals_ = 0;
    hasRefused_ = false;
    isActive_ = true;
    reader_.clientReadyIs(true);
    reader_.activate(false);
  }
  // Some writer has been told that it can go on: what was refused will be told again.
  void writerGoesOn() { hasRefused_ = false; }

  const TablePlan& table() const { return table_; }
  const std::vector<Row>& copy() const { return copy_; }
  // What is wrong with what it has been told; empty for nothing.
  const std::string& problem() const { return problem_; }
  // Whether it has been taken down by its own failure.
  bool isGone() const { return failures_ > 0; }
  // Whether all that happens is told to it at once.
  bool isListening() const { return isActive_ && !hasRefused_ && !isGone() && reader_.clientReady(); }
  // Whether so many ends of data are what it should have been told.
  bool hasHeardEnds(unsigned ends) const { return ends_ == ends || (isLate_ && ends_ == 0); }

 private:
  void told(bool isInsertion, const Row& row) {
    mayRefuse();
    if (table_.fillers != 0 && ends_ != 0) complain("told of" + textOf(row) + " behind the end of data");
    const auto stored = std::find_if(copy_.begin(), copy_.end(), [&](const Row& r) {
      return isInsertion ? table_.hasKey && r.key == row.key : r == row;
    });
    if (isInsertion != (stored == copy_.end()))
      complain((isInsertion ? "told twice of" : "told that it lost") + textOf(row));
    else if (!isInsertion)
      copy_.erase(stored);
    else
      copy_.insert(table_.hasKey ? std::lower_bound(copy_.begin(), copy_.end(), row) : copy_.end(), row);
  }

  void mayRefuse() {
    if (isGone()) complain("told after it was taken down");
    if (!isActive_ || !reader_.clientReady()) complain("told while it was stopped");
    hasRefused_ = refusals_ > 0;
    if (hasRefused_) {
      --refusals_;
      throw TvTableFull("refused");
    }
    if (failsNext_) throw std::runtime_error("failed");
  }

  void complain(const std::string& text) {
    if (problem_.empty()) problem_ = "the follower of " + table_.name + " was " + text;
  }

  const TablePlan table_;
  const bool isLate_;
  std::vector<Row> copy_;
  std::string problem_;
  bool isActive_ = true;
  // Of the next notifications, so many are refused.
  unsigned refusals_ = 0;
  bool hasRefused_ = false;
  bool failsNext_ = false;
  unsigned failures_ = 0;
  unsigned ends_ = 0;
  Client client_;
  TvTableInterface reader_{"follower",
                           "",
                           TvTableInterface::readMode,
                           nullptr,
                           [this](const BaseRow& row) { told(true, rowOf(row)); },
                           [this](const BaseRow& row) { told(false, rowOf(row)); },
                           nullptr};
};

}  // namespace Tavro::Simulation
