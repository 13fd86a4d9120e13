#include <random>
#include <utility>

#include "sqlite.h"
#include "tables.h"
#include "workloads.h"

namespace Tavro::Bench {

namespace {

constexpr std::size_t probesPerItem = 10;

// As in programs/lookup.tva.
constexpr len_t idColumn = 8;
constexpr len_t priceColumn = 12;
constexpr len_t itemsLength = 20;
constexpr len_t probesLength = 12;

std::size_t itemCount(const Scale& scale) { return scale.items / probesPerItem; }

// Ids have gaps, so that the key is no mere position.
unsigned int idOf(std::size_t item) { return static_cast<unsigned int>(7 * item + 3); }
double priceOf(std::size_t item) { return static_cast<double>(item % 997) + 0.25; }

// Every one finds its row, in no regular order.
std::vector<unsigned int> newProbes(const Scale& scale) {
  std::mt19937 random(scale.seed);
  std::vector<unsigned int> probes(scale.items);
  for (unsigned int& probe : probes) probe = idOf(random() % itemCount(scale));
  return probes;
}

class OverTables : public Contestant {
 public:
  explicit OverTables(const Scale& scale) {
    Writer itemWriter(items_);
    for (std::size_t item = 0; item < itemCount(scale); ++item) {
      BaseRow row = priced(items_, idOf(item), priceOf(item));
      itemWriter.rowIs(row);
    }
    Writer probeWriter(probes_);
    for (const unsigned int id : newProbes(scale)) {
      BaseRow row = probes_.newRow();
      row.setColumn(idColumn, id, probesLength);
      probeWriter.rowIs(row);
    }
  }
  Answer answer() override { return answerOf(prices_); }

 protected:
  static BaseRow priced(const Table& table, unsigned int id, double price) {
    BaseRow row = table.newRow();
    row.setColumn(idColumn, id, itemsLength);
    row.setColumn(priceColumn, price, itemsLength);
    return row;
  }

  Table& items_ =
      database().createTable("bench::items", {{"id", TypeUint32, false, true}, {"price", TypeDouble}});
  Table& probes_ = database().createTable("bench::probes", {{"id", TypeUint32}});
  Table& prices_ = database().createTable("bench::prices", {{"id", TypeUint32}, {"price", TypeDouble}});
};

class TvopLookup : public OverTables {
 public:
  explicit TvopLookup(const Scale& scale) : OverTables(scale), proxy_(enabledProgram("lookup.tva", false)) {}
  void run() override { runUntilIdle(); }

 private:
  TvPtr<TvRT::Proxy> proxy_;
};

class NativeLookup : public OverTables {
 public:
  using OverTables::OverTables;
  void run() override {
    const Reader probes(probes_);
    const Reader items(items_);
    Writer prices(prices_);
    BaseRow key = items_.newRow();
    const TvRowIterator end = probes.end(0);
    const TvRowIterator nowhere = items.end(0);
    for (TvRowIterator at = probes.begin(0); at != end; ++at) {
      unsigned int id = 0;
      (*at).getColumn(idColumn, id);
      key.setColumn(idColumn, id, itemsLength);
      const TvRowIterator found = items.find(key, 0);
      if (found == nowhere) continue;
      const BaseRow item = *found;
      double price = 0;
      item.getColumn(idColumn, id);
      item.getColumn(priceColumn, price);
      BaseRow out = priced(prices_, id, price);
      prices.rowIs(std::move(out));
    }
  }
};

class SqliteLookup : public Contestant {
 public:
  explicit SqliteLookup(const Scale& scale) {
    sqlite_.execute("BEGIN");
    Sqlite::Statement newItem = sqlite_.prepare("INSERT INTO items VALUES(?, ?)");
    for (std::size_t item = 0; item < itemCount(scale); ++item)
      newItem.run(std::int64_t{idOf(item)}, priceOf(item));
    Sqlite::Statement newProbe = sqlite_.prepare("INSERT INTO probes VALUES(?)");
    for (const unsigned int id : newProbes(scale)) newProbe.run(std::int64_t{id});
    sqlite_.execute("COMMIT");
  }
  void run() override {
    sqlite_.execute("BEGIN");
    query_.run();
    sqlite_.execute("COMMIT");
  }
  Answer answer() override { return sqlite_.answerOf("SELECT id, price FROM prices"); }

 private:
  static Sqlite withTables() {
    Sqlite sqlite;
    sqlite.execute(
        "CREATE TABLE items(id INTEGER PRIMARY KEY, price REAL);"
        "CREATE TABLE probes(id INTEGER);"
        "CREATE TABLE prices(id INTEGER, price REAL)");
    return sqlite;
  }

  Sqlite sqlite_ = withTables();
  // A cross join walks the probes and looks up the items, never the other way.
  Sqlite::Statement query_ = sqlite_.prepare(
      "INSERT INTO prices SELECT items.id, items.price FROM probes CROSS JOIN items "
      "WHERE items.id = probes.id");
};

}  // namespace

std::vector<Entrant> lookupEntrants() {
  return {{"tvop", "lookup", make<TvopLookup>},
          {"SQLite", "lookup", make<SqliteLookup>},
          {"C++", "lookup-native", make<NativeLookup>}};
}

}  // namespace Tavro::Bench
