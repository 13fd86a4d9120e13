// An index by program beside the same one by columns: rows come in, then each is looked up.

#include <algorithm>
#include <numeric>
#include <random>

#include "Tavro/TvRTIndexRowOps.h"
#include "tables.h"
#include "workloads.h"

namespace Tavro::Bench {

namespace {

constexpr unsigned daysPerShop = 100;

// As in programs/indexLess.tva and programs/indexHash.tva.
constexpr len_t idColumn = 8;
constexpr len_t shopColumn = 12;
constexpr len_t dayColumn = 16;
constexpr len_t amountColumn = 20;
constexpr len_t salesLength = 28;

// Every pair of shop and day once, in no regular order.
std::vector<unsigned int> newSales(const Scale& scale) {
  std::vector<unsigned int> sales(scale.items);
  std::iota(sales.begin(), sales.end(), 0U);
  std::shuffle(sales.begin(), sales.end(), std::mt19937(scale.seed));
  return sales;
}

class OverIndex : public Contestant {
 public:
  explicit OverIndex(const Scale& scale) : arrivals_(newSales(scale)) {}

  void run() override {
    Writer writer(sales_);
    for (const unsigned int sale : arrivals_) {
      BaseRow row = keyOf(sale);
      row.setColumn(idColumn, sale, salesLength);
      row.setColumn(amountColumn, sale % 1000 + 0.5, salesLength);
      writer.rowIs(row);
    }
    const Reader reader(sales_);
    for (unsigned int sale = 0; sale < arrivals_.size(); ++sale) {
      const BaseRow row = *reader.find(keyOf(sale), 1);
      unsigned int id = 0;
      double amount = 0;
      row.getColumn(idColumn, id);
      row.getColumn(amountColumn, amount);
      answer_.add(id, amount);
    }
  }
  Answer answer() override { return answer_; }

 protected:
  Table& sales_ = database().createTable(
      "bench::sales",
      {{"id", TypeUint32}, {"shop", TypeUint32}, {"day", TypeUint32}, {"amount", TypeDouble}});

 private:
  BaseRow keyOf(unsigned int sale) const {
    BaseRow row = sales_.newRow();
    row.setColumn(shopColumn, sale / daysPerShop, salesLength);
    row.setColumn(dayColumn, sale % daysPerShop, salesLength);
    return row;
  }

  std::vector<unsigned int> arrivals_;
  Answer answer_;
};

class ByLess : public OverIndex {
 public:
  explicit ByLess(const Scale& scale) : OverIndex(scale) {
    sales_.addIndex(TvRT::genTvRtRowOps(1, false, true, programPath("indexLess.tva")));
  }
};

class ByHash : public OverIndex {
 public:
  explicit ByHash(const Scale& scale) : OverIndex(scale) {
    sales_.addIndex(TvRT::genTvRtRowOps(1, false, false, programPath("indexHash.tva")));
  }
};

class ByColumns : public OverIndex {
 public:
  explicit ByColumns(const Scale& scale) : OverIndex(scale) {
    sales_.addIndex(std::vector<std::string>{"shop", "day"});
  }
};

}  // namespace

std::vector<Entrant> indexLessEntrants() {
  return {{"tvop", "index-less", make<ByLess>}, {"columns", "index-less", make<ByColumns>}};
}

std::vector<Entrant> indexHashEntrants() {
  return {{"tvop", "index-hash", make<ByHash>}, {"columns", "index-hash", make<ByColumns>}};
}

}  // namespace Tavro::Bench
