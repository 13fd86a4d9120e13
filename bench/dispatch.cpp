#include <cstdint>
#include <string>

#include "lua.h"
#include "tables.h"
#include "workloads.h"

namespace Tavro::Bench {

namespace {

constexpr double price = 2.75;
constexpr unsigned int quantity = 17;
constexpr unsigned int smallQuantity = 10;

// As in programs/dispatch.tva.
constexpr len_t priceColumn = 8;
constexpr len_t quantityColumn = 16;
constexpr len_t itemLength = 20;
constexpr len_t sumColumn = 8;
constexpr len_t counterColumn = 16;
constexpr len_t roundsColumn = 24;
constexpr len_t sumsLength = 32;

BaseRow newItem() {
  BaseRow row(itemLength);
  row.setColumn(priceColumn, price, itemLength);
  row.setColumn(quantityColumn, quantity, itemLength);
  return row;
}

Answer answerOfSums(double sum, std::uint64_t counter, std::uint64_t rounds) {
  Answer answer;
  answer.add(counter, sum);
  answer.count = rounds;
  return answer;
}

template <typename T>
T column(const BaseRow& row, len_t offset) {
  T value;
  row.getColumn(offset, value);
  return value;
}

Answer answerOfSums(const BaseRow& row) {
  return answerOfSums(column<double>(row, sumColumn), column<unsigned long long>(row, counterColumn),
                      column<unsigned long long>(row, roundsColumn));
}

class TvopLoop : public Contestant {
 public:
  explicit TvopLoop(const Scale& scale) {
    Table& items = database().createTable("bench::item", {{"price", TypeDouble}, {"quantity", TypeUint32}});
    sums_ = &database().createTable("bench::sums",
                                    {{"sum", TypeDouble}, {"counter", TypeUint64}, {"rounds", TypeUint64}});
    BaseRow item = newItem();
    Writer(items).rowIs(item);
    proxy_ = enabledProgram("dispatch.tva", false, {{"limit", std::to_string(scale.items)}});
  }
  void run() override { runUntilIdle(); }
  Answer answer() override { return answerOfSums(*Reader(*sums_).begin(0)); }

 private:
  Table* sums_;
  TvPtr<TvRT::Proxy> proxy_;
};

class NativeLoop : public Contestant {
 public:
  explicit NativeLoop(const Scale& scale) : limit_(scale.items), item_(newItem()), temp_(sumsLength) {}
  void run() override {
    do {
      if (column<unsigned int>(item_, quantityColumn) > smallQuantity) {
        add(sumColumn, column<double>(item_, priceColumn));
        add(counterColumn, static_cast<unsigned long long>(column<unsigned int>(item_, quantityColumn)));
      }
      add(roundsColumn, 1ULL);
    } while (column<unsigned long long>(temp_, roundsColumn) < limit_);
  }
  Answer answer() override { return answerOfSums(temp_); }

 private:
  template <typename T>
  void add(len_t offset, T value) {
    temp_.setColumn(offset, column<T>(temp_, offset) + value, sumsLength);
  }

  unsigned long long limit_;
  BaseRow item_;
  BaseRow temp_;
};

class LuaLoop : public Contestant {
 public:
  explicit LuaLoop(const Scale& scale) : limit_(static_cast<long long>(scale.items)) {
    lua_.loadFile(programPath("dispatch.lua"));
  }
  void run() override { lua_.call(3, price, static_cast<long long>(quantity), limit_); }
  Answer answer() override {
    return answerOfSums(lua_.real(0), static_cast<std::uint64_t>(lua_.integer(1)),
                        static_cast<std::uint64_t>(lua_.integer(2)));
  }

 private:
  long long limit_;
  Lua lua_;
};

}  // namespace

std::vector<Entrant> dispatchEntrants() {
  return {{"tvop", "dispatch", make<TvopLoop>},
          {"Lua", "dispatch", make<LuaLoop>},
          {"C++", "dispatch-native", make<NativeLoop>}};
}

}  // namespace Tavro::Bench
