#pragma once

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Tavro/TvRTProxy.h"
#include "follower.h"
#include "pipeline.h"
#include "reference.h"

namespace Tavro::Simulation {

// One pipeline, made and driven by a seed.
class Simulation {
 public:
  // Seeds of one kind leave the scheduler its own order, and have to be run before the others: there is no
  // way back.
  static bool keepsOrder(std::uint64_t seed) { return seed % 4 == 0; }

  explicit Simulation(std::uint64_t seed) : random_(seed) {
    if (!keepsOrder(seed)) database_.scheduler().seedIs(seed);
    for (const TablePlan& plan : pipeline_.tables) addTable(plan);
  }
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;
  ~Simulation() {
    hosts_.clear();
    followers_.clear();
    writers_.clear();
    database_.clear();
  }

  // Throws std::exception for what goes wrong.
  void run() {
    start();
    const unsigned rounds = 10 + random_.below(80);
    const unsigned endRound = random_.below(rounds);
    for (unsigned round = 0; round < rounds; ++round) {
      play(round >= endRound);
      for (unsigned steps = random_.below(random_.oneIn(4) ? 30 : 4); steps > 0 && step();) --steps;
    }
    while (!notEnabled_.empty()) enable(notEnabled_.back());
    for (std::size_t table = 0; table < ended_.size(); ++table) endSource(table);
    quiet();
  }

  const Pipeline& pipeline() const { return pipeline_; }
  const std::vector<std::string>& log() const { return log_; }

 private:
  struct Host {
    std::unique_ptr<Client> client;
    TvPtr<TvRT::Proxy> proxy;
    unsigned failures = 0;
  };

  static constexpr unsigned maxSteps = 200'000;
  static constexpr unsigned keysPerSource = 6;
  static constexpr unsigned valuesOfSources = 16;

  [[noreturn]] static void fail(const std::string& text) { throw std::runtime_error(text); }

  static void requireSame(std::string what, const std::vector<Row>& is, const std::vector<Row>& expected) {
    if (is == expected) return;
    what += " is";
    for (const Row& row : is) what += textOf(row);
    what += "\nexpected";
    for (const Row& row : expected) what += textOf(row);
    fail(what);
  }

  void addTable(const TablePlan& plan) {
    Table& table = database_.createTable(plan.name, {{"k", TypeInt32, false, plan.hasKey}, {"v", TypeInt32}});
    table.capacityIs(plan.capacity);
    table.fillerCountIs(plan.fillers);
    const auto block = [this](bool isBlocked) {
      for (const auto& follower : followers_)
        if (!isBlocked) follower->writerGoesOn();
    };
    writers_.push_back(std::make_unique<TvTableInterface>("writer", "", TvTableInterface::writeMode, nullptr,
                                                          nullptr, nullptr, block));
    database_.bindInterface(*writers_.back(), plan.name);
  }

  // A reader behind another is enabled first: then it is ready before the other writes anything.
  void start() {
    for (std::size_t i = 0; i < hosts_.size(); ++i) notEnabled_.push_back(i);
    for (std::size_t i = 0; i < writers_.size(); ++i) {
      fill(i);
      if (!pipeline_.tables[i].isRead || random_.oneIn(3)) addFollower(i);
    }
    while (pipeline_.startsQuietly && !notEnabled_.empty()) {
      enable(notEnabled_.back());
      settle();
    }
  }

  void enable(std::size_t number) {
    std::erase(notEnabled_, number);
    log_.push_back("enable operator " + std::to_string(number));
    const OperatorPlan& plan = pipeline_.operators[number];
    const std::string path =
        std::filesystem::temp_directory_path() / ("simulate." + std::to_string(getpid()) + ".tva");
    std::ofstream(path) << programOf(pipeline_, plan);
    Host& host = hosts_[number];
    host.proxy = TvRT::Proxy::factory(path, !plan.isOneShot);
    std::remove(path.c_str());
    if (pipeline_.isBare) return host.proxy->enable();
    host.client =
        std::make_unique<Client>(database_, [&host](const std::exception_ptr&) { ++host.failures; });
    host.client->bind([&] { host.proxy->enable(); });
  }

  void addFollower(std::size_t table) {
    log_.push_back("follow " + pipeline_.tables[table].name);
    followers_.push_back(
        std::make_unique<Follower>(database_, pipeline_.tables[table], reference_.hasEnded(table)));
  }

  // Does one thing at random.
  void play(bool mayEnd) {
    const std::size_t table = random_.below(writers_.size());
    switch (random_.below(12)) {
      case 0:
        if (!notEnabled_.empty()) enable(notEnabled_[random_.below(notEnabled_.size())]);
        return;
      case 1:
        if (random_.oneIn(3)) addFollower(table);
        return;
      case 2:
        if (mayEnd) endSource(table);
        return;
      case 3:
        if (!notEnabled_.empty() || random_.oneIn(2)) return;
        quiet();
        if (random_.oneIn(8)) dropOperator();
        return;
      case 4:
      case 5:
      case 6:
        return act(*followers_[random_.below(followers_.size())]);
      default:
        change(pipeline_.tables[table].isSource ? table : 0);
    }
  }

  void act(Follower& follower) {
    if (!follower.isGone())
      log_.push_back("follower of " + follower.table().name + " " + follower.act(random_));
  }

  void change(std::size_t source) {
    if (ended_[source]) return;
    const bool isInsertion = isLookup(source) || pipeline_.isBare || !random_.oneIn(3);
    const int index = isLookup(source) ? lookupKeys_ : static_cast<int>(random_.below(keysPerSource));
    apply(source, isInsertion, index);
  }

  // The order in which the rows come is that in which they will be read, and none is replaced.
  void fill(std::size_t table) {
    if (!pipeline_.tables[table].isSource) return;
    for (int index = 0, rows = static_cast<int>(random_.below(keysPerSource)); index < rows; ++index)
      apply(table, true, index);
  }

  bool isLookup(std::size_t table) const { return pipeline_.tables[table].origins == 1U << lookupOrigin; }

  void apply(std::size_t source, bool isInsertion, int index) {
    const int origin = std::countr_zero(pipeline_.tables[source].origins);
    const Row row{isLookup(source) ? index : static_cast<int>(origins) * index + origin,
                  static_cast<int>(random_.below(valuesOfSources))};
    log_.push_back((isInsertion ? "+ " : "- ") + pipeline_.tables[source].name + textOf(row));
    BaseRow changed(rowLength);
    changed.setColumn(keyColumn, row.key, rowLength);
    changed.setColumn(valueColumn, row.value, rowLength);
    try {
      isInsertion ? writers_[source]->rowIs(changed) : writers_[source]->rowDel(changed);
    } catch (const TvMaxRowsExceeded&) {
      log_.back() += ", refused";
      return;
    }
    if (isLookup(source)) ++lookupKeys_;
    reference_.apply(source, {isInsertion, row});
  }

  void endSource(std::size_t table) {
    const TablePlan& plan = pipeline_.tables[table];
    if (plan.fillers == 0 || !plan.isSource || ended_[table]) return;
    log_.push_back("end of " + plan.name);
    ended_[table] = true;
    BaseRow mark;
    writers_[table]->rowIs(mark);
    reference_.end(table);
  }

  void dropOperator() {
    const std::size_t number = random_.below(hosts_.size());
    log_.push_back("drop operator " + std::to_string(number));
    hosts_[number].proxy.reset();
    reference_.drop(number);
  }

  bool step() {
    const bool ran = database_.scheduler().step();
    for (const auto& follower : followers_) checkFollower(*follower, !ran);
    return ran;
  }

  void settle() {
    unsigned steps = 0;
    while (step())
      if (++steps > maxSteps) fail("it does not come to rest");
  }

  // Everybody goes on until there is nothing left to do.
  void quiet() {
    log_.push_back("quiet");
    for (const auto& follower : followers_)
      if (!follower->isGone()) follower->wake();
    settle();
    for (std::size_t i = 0; i < hosts_.size(); ++i)
      if (hosts_[i].failures != (reference_.hasFailed(i) ? 1 : 0))
        fail("operator " + std::to_string(i) + " has failed " + std::to_string(hosts_[i].failures) +
             " times");
    for (std::size_t i = 0; i < writers_.size(); ++i) checkContents(i);
    for (const auto& follower : followers_) checkEnd(*follower);
  }

  std::size_t numberOf(const TablePlan& table) const {
    std::size_t number = 0;
    while (pipeline_.tables[number].name != table.name) ++number;
    return number;
  }

  // What is in the table and not in a follower's copy has not been told to it, and the capacity bounds that.
  // A listening follower has been told all that there is when the scheduler is idle.
  void checkFollower(const Follower& follower, bool isIdle) {
    if (!follower.problem().empty()) fail(follower.problem());
    const TablePlan& table = follower.table();
    const std::size_t size = database_.findTable(table.name)->size();
    if (table.capacity != 0 && !follower.isGone() && size > follower.copy().size() + table.capacity)
      fail(table.name + " holds more rows untold than its capacity");
    if (isIdle && follower.isListening())
      requireSame("the copy of " + table.name, follower.copy(), contentsOf(*writers_[numberOf(table)]));
  }

  void checkContents(std::size_t table) {
    std::vector<Row> expected = reference_.rows(table);
    std::vector<Row> is = contentsOf(*writers_[table]);
    if (!pipeline_.tables[table].isOrdered) {
      std::sort(expected.begin(), expected.end());
      std::sort(is.begin(), is.end());
    }
    requireSame(pipeline_.tables[table].name, is, expected);
  }

  void checkEnd(const Follower& follower) {
    const TablePlan& table = follower.table();
    const unsigned ends = reference_.hasEnded(numberOf(table)) ? 1 : 0;
    if (table.fillers != 0 && !follower.isGone() && !follower.hasHeardEnds(ends))
      fail("a follower of " + table.name + " was told of the end of data too often or not at all");
  }

  Random random_;
  Pipeline pipeline_ = makePipeline(random_);
  Reference reference_{pipeline_};
  Database& database_ = getTavroDb()->database();
  std::vector<std::unique_ptr<TvTableInterface>> writers_;
  std::vector<std::unique_ptr<Follower>> followers_;
  std::vector<Host> hosts_ = std::vector<Host>(pipeline_.operators.size());
  std::vector<std::size_t> notEnabled_;
  std::vector<bool> ended_ = std::vector<bool>(pipeline_.tables.size());
  int lookupKeys_ = 0;
  std::vector<std::string> log_;
};

}  // namespace Tavro::Simulation
