#include <map>
#include <sstream>

#include "support.h"

namespace Tavro {
namespace {

// A table `t` with readers and writers that log what they are told, as "name:what".
class Delivery : public testing::Test {
 protected:
  Delivery() { createTable(); }

  void createTable() {
    table_ = &database_.createTable("t", {{"k", TypeUint8, false, true}, {"v", TypeUint8}});
  }

  TvTableInterface& addReader(const std::string& name) {
    auto reader = std::make_unique<TvTableInterface>(
        name, "", TvTableInterface::readMode, [=, this] { told(name, "ready"); },
        [=, this](const BaseRow& row) { told(name, "+" + textOf(*table_, row)); },
        [=, this](const BaseRow& row) { told(name, "-" + textOf(*table_, row)); }, nullptr);
    reader->endHandlerIs([=, this] { told(name, "end"); });
    return add(std::move(reader));
  }
  TvTableInterface& addWriter(const std::string& name) {
    return add(std::make_unique<TvTableInterface>(
        name, "", TvTableInterface::writeMode, [=, this] { told(name, "ready"); }, nullptr, nullptr,
        [=, this](bool blocked) { told(name, blocked ? "blocked" : "free"); }));
  }
  TvTableInterface& at(const std::string& name) { return *interfaces_.at(name); }
  void drop(const std::string& name) { interfaces_.erase(name); }

  // Every value of a row is the number of its insertion.
  void insert(const std::string& writer, int key) {
    BaseRow row = makeRow(*table_, {std::to_string(key), std::to_string(++insertions_)});
    try {
      at(writer).rowIs(row);
    } catch (const TvMaxRowsExceeded& full) {
      --insertions_;
      log_.push_back(writer + ":" + full.what());
    }
  }

  void run() {
    inScheduler_ = true;
    database_.scheduler().runUntilIdle();
    inScheduler_ = false;
  }
  bool step() {
    inScheduler_ = true;
    const bool ran = database_.scheduler().step();
    inScheduler_ = false;
    return ran;
  }
  std::string takeLog() {
    std::string text;
    for (const std::string& line : log_) text += (text.empty() ? "" : " ") + line;
    log_.clear();
    return text;
  }

  // Words: + - and a key, `end`: changes by the writer w. `ready`, `unready`, `reading`, `active`, `stop`:
  // calls of the reader r. `refuse`: r refuses what it is told next. `run`, `step`.
  void perform(const std::string& script) {
    std::istringstream words(script);
    for (std::string word; words >> word;) {
      BaseRow null;
      if (word == "end")
        at("w").rowIs(null);
      else if (word == "ready")
        at("r").clientReadyIs(true);
      else if (word == "unready")
        at("r").clientReadyIs(false);
      else if (word == "reading")
        at("r").activate(true);
      else if (word == "active")
        at("r").activate(false);
      else if (word == "stop")
        at("r").deactivate(true);
      else if (word == "refuse")
        ++refusals_["r"];
      else if (word == "run")
        run();
      else if (word == "step")
        step();
      else if (word[0] == '+')
        insert("w", std::stoi(word.substr(1)));
      else
        at("w").rowDel(makeRow(*table_, {word.substr(1), "0"}));
    }
  }

  Database database_;
  Table* table_ = nullptr;
  std::map<std::string, std::unique_ptr<TvTableInterface>> interfaces_;
  std::vector<std::string> log_;
  std::map<std::string, unsigned> refusals_;
  // What an interface does when it is told something.
  std::map<std::string, std::function<void()>> reactions_;
  int insertions_ = 0;

 private:
  TvTableInterface& add(std::unique_ptr<TvTableInterface> interface) {
    TvTableInterface& added = *interface;
    interfaces_[added.name()] = std::move(interface);
    database_.bindInterface(added, "t");
    return added;
  }
  void told(const std::string& name, const std::string& what) {
    EXPECT_TRUE(inScheduler_) << name << " was told " << what << " from inside a call";
    if (refusals_[name] > 0) {
      --refusals_[name];
      log_.push_back(name + ":refused");
      throw TvTableFull("not now");
    }
    log_.push_back(name + ":" + what);
    if (const auto reaction = reactions_[name]) reaction();
  }

  bool inScheduler_ = false;
};

struct Road {
  const char* script;
  const char* log;
};

TEST_F(Delivery, AReaderIsToldEverythingOnceInOrderFromItsActivationOn) {
  const std::vector<Road> roads{
      {"+1 -1 +2 end run", ""},
      {"ready +1 run", "r:ready"},
      {"+1 run ready run active run", "r:ready"},
      {"ready run unready ready run", "r:ready"},
      {"ready active +1 +2 -1 run", "r:ready r:+1|1 r:+2|2 r:-1|1"},
      {"ready active +1 step step +2 -2 run", "r:ready r:+1|1 r:+2|2 r:-2|2"},
      {"active +1 run ready run", "r:ready r:+1|1"},
      {"ready active +1 unready run ready run", "r:ready r:+1|1"},
      {"ready reading +1 -1 run active +2 run", "r:ready r:+1|1 r:-1|1 r:+2|2"},
      {"ready reading +1 reading +2 run active run", "r:ready r:+1|1 r:+2|2"},
      {"ready active run +1 stop run +2 run active run", "r:ready r:+1|1 r:+2|2"},
      {"ready reading +1 stop +2 run active run", "r:ready r:+1|1 r:+2|2"},
      {"ready stop +1 active run +2 run", "r:ready r:+2|2"},
      {"ready active +1 +1 run", "r:ready r:+1|1 r:-1|1 r:+1|2"},
      {"+1 ready active -1 -1 -9 run", "r:ready r:-1|1"},
      {"ready active end +1 end run", "r:ready r:end r:+1|1 r:end"},
      {"ready run active +1 +2 refuse run +3 run active run", "r:ready r:refused r:+1|1 r:+2|2 r:+3|3"},
      {"ready run active +1 refuse refuse run active run reading run active run",
       "r:ready r:refused r:refused r:+1|1"},
      {"ready refuse active +1 run active run", "r:refused r:ready r:+1|1"},
  };
  for (const Road& road : roads) {
    addWriter("w");
    run();
    addReader("r");
    takeLog();
    perform(road.script);
    EXPECT_EQ(takeLog(), road.log) << road.script;
    drop("r");
    for (const char* key : {"1", "2", "3"}) at("w").rowDel(makeRow(*table_, {key, "0"}));
    drop("w");
    EXPECT_EQ(table_->size(), 0U);
    insertions_ = 0;
  }
}

TEST_F(Delivery, InterfacesTakeTurnsInTheOrderInWhichTheyBecameRunnable) {
  addWriter("w");
  for (const char* name : {"a", "b"}) {
    addReader(name).clientReadyIs(true);
    at(name).activate(false);
  }
  insert("w", 1);
  insert("w", 2);
  EXPECT_TRUE(step());
  EXPECT_EQ(takeLog(), "w:ready");
  run();
  EXPECT_EQ(takeLog(), "a:ready b:ready a:+1|1 b:+1|1 a:+2|2 b:+2|2");
  EXPECT_FALSE(step());
}

TEST_F(Delivery, AReaderWithoutHandlersIsReadyAndKeepsNothing) {
  addWriter("w");
  bool ready = false;
  TvTableInterface reader(
      "plain", "", TvTableInterface::readMode, [&] { ready = true; }, nullptr, nullptr, nullptr);
  database_.bindInterface(reader, "t");
  reader.clientReadyIs(true);
  reader.activate(true);
  run();
  EXPECT_TRUE(ready);
  table_->capacityIs(1);
  BaseRow null;
  at("w").rowIs(null);
  insert("w", 1);
  at("w").rowDel(makeRow(*table_, {"1", "0"}));
  const std::size_t before = allocation::inUse();
  BaseRow row = makeRow(*table_, {"1", "0"});
  for (unsigned i = 0; i < 100; ++i) {
    at("w").rowIs(row);
    at("w").rowDel(row);
  }
  EXPECT_LE(allocation::inUse(), before + 8);
  EXPECT_EQ(takeLog(), "w:ready");
}

TEST_F(Delivery, AFullTableRefusesRowsAndTellsItsWritersWhenItCanGoOn) {
  addWriter("w");
  addWriter("x");
  addReader("r");
  addReader("idle");
  table_->capacityIs(2);
  perform("ready run reading +1 +2");
  takeLog();
  perform("+3 +3");
  insert("x", 3);
  EXPECT_EQ(takeLog(),
            "w:table t: 2 rows wait to be read, it can take no more "
            "w:table t: 2 rows wait to be read, it can take no more "
            "x:table t: 2 rows wait to be read, it can take no more");
  EXPECT_EQ(table_->size(), 2U);
  perform("-1 end run");
  EXPECT_EQ(takeLog(), "w:blocked x:blocked");
  perform("active step");
  EXPECT_EQ(takeLog(), "r:+1|1");
  perform("run");
  EXPECT_EQ(takeLog(), "w:free x:free r:+2|2 r:-1|1 r:end");
  perform("+4 run");
  EXPECT_EQ(takeLog(), "r:+4|3");

  // Both notices stand in line before the first is told: the reader has gone, the capacity has gone.
  perform("stop +5 +6 +7");
  takeLog();
  drop("r");
  run();
  EXPECT_EQ(takeLog(), "w:blocked w:free");
  addReader("r");
  perform("ready run reading +1 +2 +3");
  takeLog();
  table_->capacityIs(0);
  perform("+3 run");
  EXPECT_EQ(takeLog(), "w:blocked w:free");
}

// A writer that goes on where it was refused, as a suspended run does.
TEST_F(Delivery, AtEveryCapacityASlowReaderIsToldTheSame) {
  std::vector<std::string> expected;
  for (const std::size_t capacity : {0U, 1U, 2U, 3U, 7U, 100U}) {
    Database database;
    Table& table = database.createTable("t", {{"k", TypeUint8, false, true}, {"v", TypeUint8}});
    table.capacityIs(capacity);
    std::vector<std::string> told;
    unsigned undelivered = 0, most = 0;
    int next = 0;
    bool blocked = false;
    std::unique_ptr<TvTableInterface> writer;
    const auto go = [&] {
      for (; next < 60; ++next) {
        BaseRow row = makeRow(table, {std::to_string(next % 7), std::to_string(next)});
        if (next % 5 == 3) {
          writer->rowDel(row);
        } else {
          try {
            writer->rowIs(row);
          } catch (const TvMaxRowsExceeded&) {
            return;
          }
          most = std::max(most, ++undelivered);
        }
      }
      BaseRow null;
      if (next == 60) writer->rowIs(null);
      ++next;
    };
    writer = std::make_unique<TvTableInterface>("w", "", TvTableInterface::writeMode, go, nullptr, nullptr,
                                                [&](bool isBlocked) {
                                                  EXPECT_NE(isBlocked, blocked);
                                                  blocked = isBlocked;
                                                  if (!blocked) go();
                                                });
    TvTableInterface reader(
        "r", "", TvTableInterface::readMode, nullptr,
        [&](const BaseRow& row) {
          --undelivered;
          told.push_back("+" + textOf(table, row));
        },
        [&](const BaseRow& row) { told.push_back("-" + textOf(table, row)); }, nullptr);
    reader.endHandlerIs([&] { told.push_back("end"); });
    database.bindInterface(reader, "t");
    database.bindInterface(*writer, "t");
    reader.clientReadyIs(true);
    reader.activate(false);
    database.scheduler().runUntilIdle();
    EXPECT_FALSE(blocked);
    ASSERT_EQ(told.empty() ? "" : told.back(), "end");
    if (capacity == 0) expected = told;
    EXPECT_EQ(told, expected) << "capacity " << capacity;
    if (capacity != 0) {
      EXPECT_LE(most, capacity);
    }
  }
}

TEST_F(Delivery, WhatWasRefusedIsTriedAgainWhenAnyWriterIsFree) {
  addWriter("w");
  addReader("r");
  perform("ready run active +1 refuse run +2 run");
  takeLog();
  Table& other = database_.createTable("other", {{"k", TypeUint8}});
  other.capacityIs(1);
  bool free = false;
  TvTableInterface writer("o", "", TvTableInterface::writeMode, nullptr, nullptr, nullptr,
                          [&](bool blocked) { free = !blocked; });
  TvTableInterface slow(
      "s", "", TvTableInterface::readMode, nullptr, [](const BaseRow&) {}, nullptr, nullptr);
  database_.bindInterface(writer, "other");
  database_.bindInterface(slow, "other");
  slow.clientReadyIs(true);
  slow.activate(true);
  BaseRow row = makeRow(other, {"1"});
  writer.rowIs(row);
  EXPECT_THROW(writer.rowIs(row), TvMaxRowsExceeded);
  run();
  EXPECT_FALSE(free);
  EXPECT_EQ(takeLog(), "");
  slow.activate(false);
  run();
  EXPECT_TRUE(free);
  EXPECT_EQ(takeLog(), "r:+1|1 r:+2|2");
}

TEST_F(Delivery, AnExceptionPassesThroughTheSchedulerAndCountsAsDelivered) {
  addWriter("w");
  addReader("r");
  perform("ready run active +1 +2");
  takeLog();
  reactions_["r"] = [&] {
    reactions_.clear();
    throw std::runtime_error("broken");
  };
  EXPECT_EQ(messageOf<std::runtime_error>([&] { run(); }), "broken");
  run();
  EXPECT_EQ(takeLog(), "r:+1|1 r:+2|2");
}

TEST_F(Delivery, InterfacesMayGoAtAnyTime) {
  using Reaction = std::function<void()>;
  const std::vector<std::pair<const char*, Reaction>> cases{
      {"itself", [&] { drop("r"); }},
      {"a reader in line", [&] { drop("s"); }},
      {"the writer, blocked", [&] { drop("w"); }},
      {"all", [&] { interfaces_.clear(); }},
      {"the tables", [&] { database_.clear(); }},
      {"itself, refusing",
       [&] {
         drop("r");
         throw TvTableFull("gone");
       }},
      {"nothing, but the loop again", [&] { EXPECT_FALSE(database_.scheduler().step()); }},
  };
  for (const auto& [what, reaction] : cases) {
    SCOPED_TRACE(what);
    database_.clear();
    createTable();
    addWriter("w");
    addReader("r");
    addReader("s").clientReadyIs(true);
    at("s").activate(false);
    run();
    table_->capacityIs(2);
    const std::string owned = "a capture that would show a handler that died while it ran";
    reactions_["r"] = [&, reaction = reaction, owned] {
      const Reaction once = reaction;
      const std::string before = owned;
      reactions_["r"] = nullptr;
      once();
      EXPECT_EQ(before, owned);
    };
    perform("ready active +1 +2 +3 step step step run");
    interfaces_.clear();
    run();
    takeLog();
  }
}

TEST_F(Delivery, AnInterfaceOutlivesItsDatabase) {
  auto database = std::make_unique<Database>();
  database->createTable("t", {{"k", TypeUint8}});
  const auto writer = makeWriter(*database, "t");
  TvTableInterface reader(
      "r", "", TvTableInterface::readMode, [] {}, nullptr, nullptr, nullptr);
  database->bindInterface(reader, "t");
  reader.clientReadyIs(true);
  database.reset();
  reader.clientReadyIs(false);
  reader.clientReadyIs(true);
  EXPECT_FALSE(reader.runnable());
  EXPECT_EQ(messageOf<std::logic_error>([&] { reader.activate(true); }),
            "interface r is not bound to a table");
}

TEST_F(Delivery, CallsThatMakeNoSenseSaySo) {
  addReader("r");
  BaseRow row = makeRow(*table_, {"1", "1"});
  EXPECT_EQ(messageOf<std::logic_error>([&] { at("r").rowIs(row); }),
            "interface r reads its table and cannot write to it");
  EXPECT_EQ(messageOf<std::logic_error>([&] { database_.bindInterface(at("r"), "t"); }),
            "interface r is bound already");
  EXPECT_EQ(messageOf<std::invalid_argument>(
                [] { TvTableInterface("m", "", 4, nullptr, nullptr, nullptr, nullptr); }),
            "interface m: mode 4 neither reads nor writes");
}

struct Target {
  std::vector<std::string> told;
  void ready() { told.push_back("ready"); }
  void block(bool blocked) { told.push_back(blocked ? "blocked" : "free"); }
};

TEST_F(Delivery, HandlersMayBeMembersOfAnObject) {
  Target target;
  TvTableInterface writer("w", "", TvTableInterface::writeMode, &target, &Target::ready,
                          static_cast<void (Target::*)(const BaseRow&)>(nullptr),
                          static_cast<void (Target::*)(const BaseRow&)>(nullptr), &Target::block);
  database_.bindInterface(writer, "t");
  addReader("r");
  perform("reading");
  table_->capacityIs(1);
  BaseRow row = makeRow(*table_, {"1", "1"});
  writer.rowIs(row);
  EXPECT_THROW(writer.rowIs(row), TvMaxRowsExceeded);
  run();
  EXPECT_EQ(target.told, (std::vector<std::string>{"ready", "blocked"}));
}

class Probe : public Schedulable {
 public:
  Probe() : Schedulable("probe", Kelpo::Platform::getDebugHandler("Scheduler")) {}
  bool runnable() const override { return false; }
  void runOnce() override {}
  unsigned changes = 0;

 protected:
  void clientReadyChanged() override { ++changes; }
};

TEST(Schedulable, ClientReadyIsTracesEveryCallAndHooksEveryChange) {
  Probe probe;
  Kelpo::DebugHandler* const handler = Kelpo::Platform::getDebugHandler("Scheduler");
  handler->levelIs(8, true);
  testing::internal::CaptureStderr();
  for (const bool ready : {false, true, true, false}) probe.clientReadyIs(ready);
  handler->flush();
  std::string lines = testing::internal::GetCapturedStderr();
  handler->levelIs(8, false);
  probe.clientReadyIs(true);
  EXPECT_EQ(probe.changes, 3U);
  std::string expected;
  for (const char* value : {"0", "1", "1", "0"})
    expected +=
        std::string(" clientReadyIs: virtual void Tavro::Schedulable::clientReadyIs(bool) probe ready: ") +
        value + "\n";
  // Without "Scheduler:8 Scheduler:LINE".
  std::istringstream in(lines);
  std::string found;
  for (std::string line; std::getline(in, line);) {
    EXPECT_EQ(line.rfind("Scheduler:8 Scheduler:", 0), 0U) << line;
    found += line.substr(line.find(' ', 12)) + "\n";
  }
  EXPECT_EQ(found, expected);
}

}  // namespace
}  // namespace Tavro
