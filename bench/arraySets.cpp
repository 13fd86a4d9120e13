// Arrays as sets: which pairs of arrays are such that one contains the other, and which have elements in
// common.

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>

#include "tables.h"
#include "workloads.h"

namespace Tavro::Bench {

namespace {

// As in programs/contains.tva and programs/intersects.tva.
constexpr len_t idColumn = 8;
constexpr len_t firstColumn = 12;
constexpr len_t secondColumn = 16;
constexpr len_t pairsLength = 20;
constexpr len_t matchesLength = 20;

using Elements = std::vector<unsigned int>;

struct Pair {
  Elements first;
  Elements second;
};

// `second` is a part of `first`; in every other pair it has a stranger.
struct Contains {
  static constexpr const char* program = "contains.tva";

  static Pair newPair(std::size_t size, bool matches, std::mt19937& random) {
    Pair pair{Elements(size), {}};
    for (unsigned int& element : pair.first) element = static_cast<unsigned int>(random()) | 1U;
    pair.second.assign(pair.first.begin(), pair.first.begin() + static_cast<std::ptrdiff_t>(size / 2));
    std::shuffle(pair.first.begin(), pair.first.end(), random);
    if (!matches) pair.second[random() % pair.second.size()] &= ~1U;
    return pair;
  }
  static bool holds(const Elements& first, const Elements& second) {
    return std::includes(first.begin(), first.end(), second.begin(), second.end());
  }
};

// Every other pair has one element in common.
struct Intersects {
  static constexpr const char* program = "intersects.tva";

  static Pair newPair(std::size_t size, bool matches, std::mt19937& random) {
    Pair pair{Elements(size), Elements(size)};
    for (unsigned int& element : pair.first) element = static_cast<unsigned int>(random()) | 1U;
    for (unsigned int& element : pair.second) element = static_cast<unsigned int>(random()) & ~1U;
    if (matches) pair.second[random() % size] = pair.first[random() % size];
    return pair;
  }
  static bool holds(const Elements& first, const Elements& second) {
    auto a = first.begin();
    auto b = second.begin();
    while (a != first.end() && b != second.end()) {
      if (*a == *b) return true;
      ++(*a < *b ? a : b);
    }
    return false;
  }
};

void setArray(BaseRow& row, len_t column, const Elements& elements) {
  const auto count = static_cast<std::uint16_t>(elements.size());
  std::vector<unsigned char> payload(arrayCountWidth + elements.size() * sizeof(unsigned int));
  std::memcpy(payload.data(), &count, arrayCountWidth);
  std::memcpy(payload.data() + arrayCountWidth, elements.data(), elements.size() * sizeof(unsigned int));
  row.setColumn(column,
                ArrayReference<unsigned int>(payload.data(), static_cast<std::uint16_t>(payload.size())),
                pairsLength);
}

template <typename Relation, std::size_t size>
class OverPairs : public Contestant {
 public:
  explicit OverPairs(const Scale& scale) {
    Writer writer(pairs_);
    std::mt19937 random(scale.seed);
    for (unsigned int id = 0; id < scale.items; ++id) {
      const Pair pair = Relation::newPair(size, id % 2 == 0, random);
      BaseRow row = pairs_.newRow();
      row.setColumn(idColumn, id, pairsLength);
      setArray(row, firstColumn, pair.first);
      setArray(row, secondColumn, pair.second);
      writer.rowIs(row);
    }
  }
  Answer answer() override { return answerOf(matches_); }

 protected:
  Table& pairs_ = database().createTable(
      "bench::pairs", {{"id", TypeUint32}, {"first", TypeUint32, true}, {"second", TypeUint32, true}});
  Table& matches_ = database().createTable("bench::matches", {{"id", TypeUint32}, {"value", TypeDouble}});
};

template <typename Relation, std::size_t size>
class TvopPairs : public OverPairs<Relation, size> {
 public:
  explicit TvopPairs(const Scale& scale)
      : OverPairs<Relation, size>(scale), proxy_(enabledProgram(Relation::program, false)) {}
  void run() override { runUntilIdle(); }

 private:
  TvPtr<TvRT::Proxy> proxy_;
};

// Sorts copies of both arrays.
template <typename Relation, std::size_t size>
class NativePairs : public OverPairs<Relation, size> {
 public:
  using OverPairs<Relation, size>::OverPairs;
  void run() override {
    const Reader pairs(this->pairs_);
    Writer matches(this->matches_);
    Elements first;
    Elements second;
    const TvRowIterator end = pairs.end(0);
    for (TvRowIterator at = pairs.begin(0); at != end; ++at) {
      const BaseRow pair = *at;
      sortedCopy(pair, firstColumn, first);
      sortedCopy(pair, secondColumn, second);
      if (!Relation::holds(first, second)) continue;
      unsigned int id = 0;
      pair.getColumn(idColumn, id);
      BaseRow out = this->matches_.newRow();
      out.setColumn(idColumn, id, matchesLength);
      matches.rowIs(std::move(out));
    }
  }

 private:
  static void sortedCopy(const BaseRow& row, len_t column, Elements& elements) {
    ArrayReference<unsigned int> array;
    row.getColumn(column, array);
    elements.resize(array.count());
    std::memcpy(elements.data(), array.payload() + arrayCountWidth, elements.size() * sizeof(unsigned int));
    std::sort(elements.begin(), elements.end());
  }
};

template <typename Relation, std::size_t size>
std::vector<Entrant> entrants(const char* name, const char* nativeRatio) {
  return {{"tvop", name, make<TvopPairs<Relation, size>>},
          {"C++", nativeRatio, make<NativePairs<Relation, size>>}};
}

}  // namespace

std::vector<Entrant> contains4Entrants() { return entrants<Contains, 4>("contains-4", "contains-4-native"); }
std::vector<Entrant> contains64Entrants() {
  return entrants<Contains, 64>("contains-64", "contains-64-native");
}
std::vector<Entrant> contains1024Entrants() {
  return entrants<Contains, 1024>("contains-1024", "contains-1024-native");
}
std::vector<Entrant> intersects4Entrants() {
  return entrants<Intersects, 4>("intersects-4", "intersects-4-native");
}
std::vector<Entrant> intersects64Entrants() {
  return entrants<Intersects, 64>("intersects-64", "intersects-64-native");
}
std::vector<Entrant> intersects1024Entrants() {
  return entrants<Intersects, 1024>("intersects-1024", "intersects-1024-native");
}

}  // namespace Tavro::Bench
