#include <map>
#include <sstream>

#include "support.h"

namespace Tavro {
namespace {

// A table `t` with readers and writers that log what they are told, as "name:what".
class Delivery : public testing::Test {
 protected:
  Delivery() : table_(&createTable("t")) {}

  Table& createTable(const std::string& name) {
    return database_.createTable(name, {{"k", TypeUint8, false, true}, {"v", TypeUint8}});
  }

  TvTableInterface& addReader(const std::string& name, const std::string& table = "t") {
    auto reader = std::make_unique<TvTableInterface>(
        name, "", TvTableInterface::readMode, [=, this] { told(name, "ready"); },
        [=, this](const BaseRow& row) { told(name, "+" + textOf(*table_, row)); },
        [=, this](const BaseRow& row) { told(name, "-" + textOf(*table_, row)); }, nullptr);
    reader->endHandlerIs([=, this] { told(name, "end"); });
    return add(std::move(reader), table);
  }
  TvTableInterface& addWriter(const std::string& name, const std::string& table = "t") {
    auto writer = std::make_unique<TvTableInterface>(
        name, "", TvTableInterface::writeMode, [=, this] { told(name, "ready"); }, nullptr, nullptr,
        [=, this](bool blocked) { told(name, blocked ? "blocked" : "free"); });
    return add(std::move(writer), table);
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
    while (step()) {
    }
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
    BaseRow null;
    const std::map<std::string, std::function<void()>> calls{
        {"end", [&] { at("w").rowIs(null); }},
        {"ready", [&] { at("r").clientReadyIs(true); }},
        {"unready", [&] { at("r").clientReadyIs(false); }},
        {"reading", [&] { at("r").activate(true); }},
        {"active", [&] { at("r").activate(false); }},
        {"stop", [&] { at("r").deactivate(true); }},
        {"refuse", [&] { ++refusals_["r"]; }},
        {"run", [&] { run(); }},
        {"step", [&] { step(); }},
    };
    std::istringstream words(script);
    for (std::string word; words >> word;) {
      if (const auto call = calls.find(word); call != calls.end())
        call->second();
      else if (word[0] == '+')
        insert("w", std::stoi(word.substr(1)));
      else
        at("w").rowDel(makeRow(*table_, {word.substr(1), "0"}));
    }
  }

  Database database_;
  Table* table_;
  std::map<std::string, std::unique_ptr<TvTableInterface>> interfaces_;
  std::vector<std::string> log_;
  std::map<std::string, unsigned> refusals_;
  // What an interface does when it is told something.
  std::map<std::string, std::function<void()>> reactions_;
  int insertions_ = 0;

 private:
  TvTableInterface& add(std::unique_ptr<TvTableInterface> interface, const std::string& table) {
    TvTableInterface& added = *interface;
    interfaces_[added.name()] = std::move(interface);
    database_.bindInterface(added, table);
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
  // Another writer can still delete.
  BaseRow null;
  addWriter("y").rowDel(makeRow(*table_, {"1", "0"}));
  at("y").rowIs(null);
  run();
  EXPECT_EQ(takeLog(), "w:blocked x:blocked y:ready");
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

  // A large capacity frees its writers when a quarter of it is there.
  table_->capacityIs(8);
  drop("r");
  addReader("r");
  perform("ready run reading +11 +12 +13 +14 +15 +16 +17 +18 +19 run");
  takeLog();
  perform("active step");
  EXPECT_EQ(log_.size(), 1U);
  perform("step step");
  EXPECT_EQ(log_.back(), "w:free");
}

TEST_F(Delivery, WhatABlockedWriterHoldsIsToldHoweverThatEnds) {
  createTable("u");
  std::unique_ptr<Client> client;
  struct Case {
    const char* end;
    bool isTold;
    std::function<void()> act;
  };
  for (const Case& each : {Case{"room", true, [&] { table_->capacityIs(0); }},
                           Case{"room, of which nobody is told", false, [&] { table_->capacityIs(0); }},
                           Case{"the writer goes", true, [&] { drop("own"); }},
                           Case{"the client goes", true, [&] { client.reset(); }}}) {
    table_->capacityIs(1);
    addReader("r");
    client = std::make_unique<Client>(database_, [](const std::exception_ptr&) {});
    client->bind([&] {
      addReader("held", "u");
      if (each.isTold)
        addWriter("own");
      else
        interfaces_["own"] = makeWriter(database_, "t");
    });
    addWriter("w", "u");
    at("held").clientReadyIs(true);
    at("held").activate(false);
    perform("ready reading run");
    insert("own", 1);
    insert("own", 2);
    perform("+3 run");
    EXPECT_EQ(takeLog().find("held:+"), std::string::npos) << each.end;
    each.act();
    run();
    EXPECT_NE(takeLog().find("held:+3"), std::string::npos) << each.end;
    interfaces_.clear();
  }
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
    table_ = &createTable("t");
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

TEST_F(Delivery, CallsThatMakeNoSenseSaySo) {
  addReader("r");
  BaseRow row = makeRow(*table_, {"1", "1"});
  EXPECT_EQ(thrown<std::logic_error>([&] { at("r").rowIs(row); }),
            "interface r reads its table and cannot write to it");
  EXPECT_EQ(thrown<std::logic_error>([&] { database_.bindInterface(at("r"), "t"); }),
            "interface r is bound already");
  EXPECT_EQ(
      thrown<std::invalid_argument>([] { TvTableInterface("m", "", 4, nullptr, nullptr, nullptr, nullptr); }),
      "interface m: mode 4 neither reads nor writes");
}

class Probe : public Schedulable {
 public:
  Probe() : Schedulable("probe", Kelpo::Platform::getDebugHandler("Scheduler")) {}
  bool runnable() const override { return false; }
  bool runOnce() override { return true; }
  unsigned changes = 0;

 protected:
  void clientReadyChanged() override { ++changes; }
};

TEST(Schedulable, TellsOfChangesOfReadinessOnly) {
  Probe probe;
  for (const bool ready : {false, true, true, false, true}) probe.clientReadyIs(ready);
  EXPECT_EQ(probe.changes, 3U);
}

}  // namespace
}  // namespace Tavro
