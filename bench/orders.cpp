// The one-shot scan and the standing reaction: the same work over a table of orders.

#include <optional>
#include <random>
#include <utility>

#include "sqlite.h"
#include "tables.h"
#include "workloads.h"

namespace Tavro::Bench {

namespace {

constexpr double smallQuantity = 5;

// As in programs/oneshot.tva and programs/standing.tva.
constexpr len_t idColumn = 8;
constexpr len_t priceColumn = 12;
constexpr len_t quantityColumn = 20;
constexpr len_t ordersLength = 28;
constexpr len_t totalColumn = 12;
constexpr len_t totalsLength = 20;

struct Order {
  unsigned int id;
  double price;
  double quantity;
};

// Half of the orders are of more than 5 pieces, in no regular order.
std::vector<Order> newOrders(const Scale& scale) {
  std::mt19937 random(scale.seed);
  std::vector<Order> orders(scale.items);
  unsigned int id = 0;
  for (Order& order : orders) {
    order.id = ++id;
    order.price = static_cast<double>(random() % 100'000) / 100;
    order.quantity = static_cast<double>(1 + random() % 10);
  }
  return orders;
}

struct OrderTables {
  Table& orders = database().createTable(
      "bench::orders", {{"id", TypeUint32}, {"price", TypeDouble}, {"quantity", TypeDouble}});
  Table& totals = database().createTable("bench::totals", {{"id", TypeUint32}, {"total", TypeDouble}});
};

void insert(const OrderTables& tables, Writer& writer, const Order& order) {
  BaseRow row = tables.orders.newRow();
  row.setColumn(idColumn, order.id, ordersLength);
  row.setColumn(priceColumn, order.price, ordersLength);
  row.setColumn(quantityColumn, order.quantity, ordersLength);
  writer.rowIs(std::move(row));
}

// What the programs compare an order's quantity with.
TvRT::Proxy::Parameters limit() { return {{"limit", std::to_string(smallQuantity)}}; }

// The work on one order, by hand.
void react(const BaseRow& order, const OrderTables& tables, Writer& totals) {
  double quantity = 0;
  order.getColumn(quantityColumn, quantity);
  if (!(quantity > smallQuantity)) return;
  unsigned int id = 0;
  double price = 0;
  order.getColumn(idColumn, id);
  order.getColumn(priceColumn, price);
  BaseRow out = tables.totals.newRow();
  out.setColumn(idColumn, id, totalsLength);
  out.setColumn(totalColumn, price * quantity, totalsLength);
  totals.rowIs(std::move(out));
}

// ---- the one-shot scan

// The orders stand in their table before the run.
class OverFullTable : public Contestant {
 public:
  explicit OverFullTable(const Scale& scale) {
    Writer writer(tables_.orders);
    for (const Order& order : newOrders(scale)) insert(tables_, writer, order);
  }
  Answer answer() override { return answerOf(tables_.totals); }

 protected:
  OrderTables tables_;
};

class TvopScan : public OverFullTable {
 public:
  explicit TvopScan(const Scale& scale)
      : OverFullTable(scale), proxy_(enabledProgram("oneshot.tva", false, limit())) {}
  void run() override { runUntilIdle(); }

 private:
  TvPtr<TvRT::Proxy> proxy_;
};

class NativeScan : public OverFullTable {
 public:
  using OverFullTable::OverFullTable;
  void run() override {
    const Reader orders(tables_.orders);
    Writer totals(tables_.totals);
    const TvRowIterator end = orders.end(0);
    for (TvRowIterator at = orders.begin(0); at != end; ++at) react(*at, tables_, totals);
  }
};

class OrderSqlite : public Contestant {
 public:
  OrderSqlite() {
    sqlite_.execute(
        "CREATE TABLE orders(id INTEGER, price REAL, quantity REAL);"
        "CREATE TABLE totals(id INTEGER, total REAL)");
  }
  Answer answer() override { return sqlite_.answerOf("SELECT id, total FROM totals"); }

 protected:
  void insertAll(const std::vector<Order>& orders, Sqlite::Statement& insertion) {
    sqlite_.execute("BEGIN");
    for (const Order& order : orders) insertion.run(std::int64_t{order.id}, order.price, order.quantity);
    sqlite_.execute("COMMIT");
  }

  static constexpr const char* insertionText = "INSERT INTO orders VALUES(?, ?, ?)";
  Sqlite sqlite_;
};

class SqliteScan : public OrderSqlite {
 public:
  explicit SqliteScan(const Scale& scale)
      : query_(sqlite_.prepare(
            "INSERT INTO totals SELECT id, price * quantity FROM orders WHERE quantity > 5")) {
    Sqlite::Statement insertion = sqlite_.prepare(insertionText);
    insertAll(newOrders(scale), insertion);
  }
  void run() override {
    sqlite_.execute("BEGIN");
    query_.run();
    sqlite_.execute("COMMIT");
  }

 private:
  Sqlite::Statement query_;
};

// ---- the standing reaction

// The orders are inserted in the run, and each has been reacted to before the next one comes.
class OverArrivals : public Contestant {
 public:
  explicit OverArrivals(const Scale& scale) : arrivals_(newOrders(scale)), writer_(tables_.orders) {}
  void run() override {
    for (const Order& order : arrivals_) {
      insert(tables_, writer_, order);
      scheduler_.runUntilIdle();
    }
  }
  Answer answer() override { return answerOf(tables_.totals); }

 protected:
  OrderTables tables_;

 private:
  std::vector<Order> arrivals_;
  Writer writer_;
  // Held, as a host would: what is measured is not how a process finds its database.
  SchedulerQueue& scheduler_ = database().scheduler();
};

class TvopReaction : public OverArrivals {
 public:
  explicit TvopReaction(const Scale& scale)
      : OverArrivals(scale), proxy_(enabledProgram("standing.tva", true, limit())) {
    runUntilIdle();
  }

 private:
  TvPtr<TvRT::Proxy> proxy_;
};

class NativeReaction : public OverArrivals {
 public:
  explicit NativeReaction(const Scale& scale)
      : OverArrivals(scale),
        totals_(tables_.totals),
        orders_(tables_.orders, [this](const BaseRow& order) { react(order, tables_, totals_); }) {
    orders_.clientReadyIs(true);
    orders_.activate(false);
  }

 private:
  Writer totals_;
  Reader orders_;
};

class SqliteReaction : public OrderSqlite {
 public:
  explicit SqliteReaction(const Scale& scale) : arrivals_(newOrders(scale)) {
    sqlite_.execute(
        "CREATE TRIGGER reaction AFTER INSERT ON orders WHEN new.quantity > 5 BEGIN "
        "INSERT INTO totals VALUES(new.id, new.price * new.quantity); END");
    insertion_.emplace(sqlite_.prepare(insertionText));
  }
  void run() override { insertAll(arrivals_, *insertion_); }

 private:
  std::vector<Order> arrivals_;
  std::optional<Sqlite::Statement> insertion_;
};

}  // namespace

std::vector<Entrant> oneshotEntrants() {
  return {{"tvop", "oneshot", make<TvopScan>},
          {"SQLite", "oneshot", make<SqliteScan>},
          {"C++", "oneshot-native", make<NativeScan>}};
}

std::vector<Entrant> standingEntrants() {
  return {{"tvop", "standing", make<TvopReaction>},
          {"SQLite", "standing", make<SqliteReaction>},
          {"C++", "standing-native", make<NativeReaction>}};
}

}  // namespace Tavro::Bench
