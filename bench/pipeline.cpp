// Stages behind each other: the output table of one is the input table of the next.

#include <optional>
#include <random>

#include "sqlite.h"
#include "tables.h"
#include "workloads.h"

namespace Tavro::Bench {

namespace {

// As in programs/stage.tva.
constexpr len_t idColumn = 8;
constexpr len_t valueColumn = 12;
constexpr len_t rowLength = 20;

// Tables in a row of stages; the first takes the events.
class StageTables {
 public:
  explicit StageTables(int stages) {
    for (int i = 0; i <= stages; ++i)
      tables_.push_back(&database().createTable(nameOf(i), {{"id", TypeUint32}, {"value", TypeDouble}}));
  }

  static std::string nameOf(int stage) { return "bench::stage" + std::to_string(stage); }
  static BaseRow rowOf(const Table& table, unsigned int id, double value) {
    BaseRow row = table.newRow();
    row.setColumn(idColumn, id, rowLength);
    row.setColumn(valueColumn, value, rowLength);
    return row;
  }

  int stages() const { return static_cast<int>(tables_.size()) - 1; }
  Table& at(int stage) const { return *tables_[static_cast<std::size_t>(stage)]; }
  Table& last() const { return *tables_.back(); }

 private:
  std::vector<Table*> tables_;
};

// A stage of our own, by the program of that file.
TvPtr<TvRT::Proxy> enabledStage(const std::string& fileName, int stage) {
  return enabledProgram(
      fileName, true,
      {{"bench::before.i", StageTables::nameOf(stage)}, {"bench::after.o", StageTables::nameOf(stage + 1)}});
}

// Every event has gone through all stages before the next one comes.
template <int Stages>
class OverStages : public Contestant {
 public:
  explicit OverStages(const Scale& scale)
      : items_(scale.items), random_(scale.seed), writer_(tables_.at(0)) {}
  void run() override {
    for (unsigned int id = 1; id <= items_; ++id) {
      writer_.rowIs(StageTables::rowOf(tables_.at(0), id, static_cast<double>(random_() % 1000)));
      runUntilIdle();
    }
  }
  Answer answer() override { return answerOf(tables_.last()); }

 protected:
  StageTables tables_{Stages};

 private:
  std::size_t items_;
  std::mt19937 random_;
  Writer writer_;
};

template <int Stages>
class TvopStages : public OverStages<Stages> {
 public:
  explicit TvopStages(const Scale& scale) : OverStages<Stages>(scale) {
    for (int i = 0; i < Stages; ++i) proxies_.push_back(enabledStage("stage.tva", i));
    runUntilIdle();
  }

 private:
  std::vector<TvPtr<TvRT::Proxy>> proxies_;
};

// The first stage has everything to say at once; the tables in between take `Capacity` rows, 0 for no limit.
template <std::size_t Capacity>
class PressedStages : public Contestant {
 public:
  explicit PressedStages(const Scale& scale) {
    std::mt19937 random(scale.seed);
    Writer writer(tables_.at(0));
    for (unsigned int id = 1; id <= scale.items; ++id) {
      writer.rowIs(StageTables::rowOf(tables_.at(0), id, static_cast<double>(random() % 1000)));
    }
    for (int i = 1; i < stages; ++i) {
      tables_.at(i).capacityIs(Capacity);
      proxies_.push_back(enabledStage("stage.tva", i));
    }
    // They are there to hear of what the first one says.
    runUntilIdle();
    proxies_.push_back(enabledStage("scan.tva", 0));
  }
  void run() override { runUntilIdle(); }
  Answer answer() override { return answerOf(tables_.last()); }

 private:
  static constexpr int stages = 4;
  StageTables tables_{stages};
  std::vector<TvPtr<TvRT::Proxy>> proxies_;
};

template <int Stages>
class NativeStages : public OverStages<Stages> {
 public:
  explicit NativeStages(const Scale& scale) : OverStages<Stages>(scale) {
    for (int i = 0; i < Stages; ++i) {
      const Table& after = this->tables_.at(i + 1);
      writers_.push_back(std::make_unique<Writer>(after));
      readers_.push_back(std::make_unique<Reader>(this->tables_.at(i),
                                                  [&after, &writer = *writers_.back()](const BaseRow& row) {
                                                    unsigned int id = 0;
                                                    double value = 0;
                                                    row.getColumn(idColumn, id);
                                                    row.getColumn(valueColumn, value);
                                                    writer.rowIs(StageTables::rowOf(after, id, value + 1));
                                                  }));
      readers_.back()->clientReadyIs(true);
      readers_.back()->activate(false);
    }
  }

 private:
  std::vector<std::unique_ptr<Writer>> writers_;
  std::vector<std::unique_ptr<Reader>> readers_;
};

template <int Stages>
class SqliteStages : public Contestant {
 public:
  explicit SqliteStages(const Scale& scale) : items_(scale.items), random_(scale.seed) {
    for (int i = 0; i <= Stages; ++i)
      sqlite_.execute("CREATE TABLE stage" + std::to_string(i) + "(id INTEGER, value REAL)");
    for (int i = 0; i < Stages; ++i)
      sqlite_.execute("CREATE TRIGGER reaction" + std::to_string(i) + " AFTER INSERT ON stage" +
                      std::to_string(i) + " BEGIN INSERT INTO stage" + std::to_string(i + 1) +
                      " VALUES(new.id, new.value + 1); END");
    insertion_.emplace(sqlite_.prepare("INSERT INTO stage0 VALUES(?, ?)"));
  }
  void run() override {
    sqlite_.execute("BEGIN");
    for (unsigned int id = 1; id <= items_; ++id)
      insertion_->run(std::int64_t{id}, static_cast<double>(random_() % 1000));
    sqlite_.execute("COMMIT");
  }
  Answer answer() override {
    return sqlite_.answerOf("SELECT id, value FROM stage" + std::to_string(Stages));
  }

 private:
  std::size_t items_;
  std::mt19937 random_;
  Sqlite sqlite_;
  std::optional<Sqlite::Statement> insertion_;
};

}  // namespace

std::vector<Entrant> pipeline1Entrants() {
  return {{"tvop", "pipeline-1", make<TvopStages<1>>},
          {"SQLite", "pipeline-1", make<SqliteStages<1>>},
          {"C++", "pipeline-1-native", make<NativeStages<1>>}};
}

std::vector<Entrant> pipeline2Entrants() {
  return {{"tvop", "pipeline-2", make<TvopStages<2>>},
          {"SQLite", "pipeline-2", make<SqliteStages<2>>},
          {"C++", "pipeline-2-native", make<NativeStages<2>>}};
}

std::vector<Entrant> pipeline4Entrants() {
  return {{"tvop", "pipeline-4", make<TvopStages<4>>},
          {"SQLite", "pipeline-4", make<SqliteStages<4>>},
          {"C++", "pipeline-4-native", make<NativeStages<4>>}};
}

std::vector<Entrant> pressure1Entrants() {
  return {{"tvop", "pressure-1", make<PressedStages<1>>}, {"no limit", "pressure-1", make<PressedStages<0>>}};
}

std::vector<Entrant> pressure16Entrants() {
  return {{"tvop", "pressure-16", make<PressedStages<16>>},
          {"no limit", "pressure-16", make<PressedStages<0>>}};
}

std::vector<Entrant> pressure1024Entrants() {
  return {{"tvop", "pressure-1024", make<PressedStages<1024>>},
          {"no limit", "pressure-1024", make<PressedStages<0>>}};
}

}  // namespace Tavro::Bench
