#include <algorithm>
#include <iterator>
#include <random>
#include <tuple>

#include "support.h"

namespace Tavro {
namespace {

struct Values {
  unsigned k, v;
  std::string s;

  bool operator==(const Values&) const = default;
};

std::string textOf(const Values& row) { return text(row.k, row.v, row.s); }

struct Kind {
  const char* name;
  bool keyed;
  // Of the programmed indexes, over k; whether one of them merges rows.
  bool ordered, unique, merges;
  unsigned steps;
  // Values are drawn from so many numbers and texts.
  unsigned range;

  friend void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }
};

// A table and the same rows in a plain vector, in order of arrival.
class TableModel : public testing::TestWithParam<Kind> {
 protected:
  TableModel() : kind_(GetParam()), fixture_(kind_.keyed) {
    fixture_.addColumns({"s", "v"});
    const TvPtr<Rules> rules = fixture_.addRules(kind_.ordered, kind_.unique);
    if (kind_.merges) fixture_.table.autoUpdateIs(rules);
  }

  // Further indexes, when there are rows already.
  void addIndexes() {
    fixture_.addColumns({"v"});
    fixture_.addRules(kind_.ordered, kind_.unique);
  }

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  // Numbers of the second half come in order. Texts differ within the first bytes of a key, or behind a
  // common beginning only; some begin others.
  Values draw() {
    const unsigned k = step_ < kind_.steps / 2 ? below(kind_.range) : step_ / 4 % kind_.range;
    const std::string beginning = below(2) == 0 ? "" : "a text longer than the head of a key ";
    return {k, below(kind_.range), beginning + std::to_string(below(kind_.range))};
  }

  bool hasOrder(unsigned index) const {
    return index == 0 ? kind_.keyed : index == 1 || index == 3 || kind_.ordered;
  }
  bool precedes(const Values& l, const Values& r, unsigned index) const {
    if (!hasOrder(index)) return false;
    if (index == 0) return std::tie(l.k, l.s) < std::tie(r.k, r.s);
    if (index == 1) return std::tie(l.s, l.v) < std::tie(r.s, r.v);
    return index == 3 ? l.v < r.v : l.k < r.k;
  }
  bool matches(const Values& l, const Values& r, unsigned index) const {
    if (hasOrder(index)) return !precedes(l, r, index) && !precedes(r, l, index);
    return index == 0 ? l == r : l.k == r.k;
  }
  auto findInModel(const Values& wanted, unsigned index) {
    return std::find_if(model_.begin(), model_.end(),
                        [&](const Values& row) { return matches(row, wanted, index); });
  }
  std::vector<Values> modelUnder(unsigned index) const {
    std::vector<Values> sorted = model_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&](const Values& l, const Values& r) { return precedes(l, r, index); });
    return sorted;
  }

  void insertOne() {
    Values row = draw();
    fixture_.insert(row.k, row.v, row.s);
    Texts expected;
    const auto met = kind_.keyed || kind_.unique ? findInModel(row, kind_.keyed ? 0 : 2) : model_.end();
    if (met != model_.end()) {
      expected.push_back('-' + textOf(*met));
      if (kind_.merges) row = {met->k, met->v + row.v, met->s};
      model_.erase(met);
    }
    expected.push_back('+' + textOf(row));
    model_.push_back(row);
    ASSERT_EQ(fixture_.news(), expected);
  }
  void deleteOne() {
    Values row = below(4) == 0 ? draw() : model_[below(static_cast<unsigned>(model_.size()))];
    if (kind_.keyed) row.v = 0;
    fixture_.writer->rowDel(fixture_.row(row.k, row.v, row.s));
    Texts expected;
    if (const auto found = findInModel(row, 0); found != model_.end()) {
      expected.push_back('-' + textOf(*found));
      model_.erase(found);
    }
    ASSERT_EQ(fixture_.news(), expected);
  }
  void lookUp() {
    const Values wanted = draw();
    const BaseRow key = fixture_.row(wanted.k, wanted.v, wanted.s);
    for (unsigned char index = 0; index <= fixture_.indexes; ++index) {
      const std::vector<Values> rows = modelUnder(index);
      const auto found = std::find_if(rows.begin(), rows.end(),
                                      [&](const Values& row) { return matches(row, wanted, index); });
      ASSERT_EQ(Tavro::textOf(fixture_.table, *fixture_.writer->find(key, index)),
                found == rows.end() ? "null" : textOf(*found));
      if (!hasOrder(index)) continue;
      auto bound = std::find_if(rows.begin(), rows.end(),
                                [&](const Values& row) { return !precedes(row, wanted, index); });
      TvRowIterator position = fixture_.writer->lower_bound(key, index);
      for (unsigned i = 0; i < 3 && bound != rows.end(); ++i)
        ASSERT_EQ(Tavro::textOf(fixture_.table, *position++), textOf(*bound++));
      if (bound == rows.end()) {
        ASSERT_EQ(position, fixture_.writer->end(index));
      }
    }
  }
  void compareWalks() {
    ASSERT_EQ(fixture_.table.size(), model_.size());
    for (unsigned index = 0; index <= fixture_.indexes; ++index) {
      Texts expected;
      for (const Values& row : modelUnder(index)) expected.push_back(textOf(row));
      ASSERT_EQ(fixture_.walkOf(index), expected) << "index " << index;
    }
  }

  const Kind kind_;
  Fixture fixture_;
  std::vector<Values> model_;
  std::mt19937 random_{2024};
  unsigned step_ = 0;
};

// Waves of growth and decline, so that the trees grow and shrink.
TEST_P(TableModel, HoldsWhatAVectorHolds) {
  for (; step_ < kind_.steps; ++step_) {
    const bool growing = 4 * step_ / kind_.steps % 2 == 0;
    if (model_.empty() || below(8) < (growing ? 7U : 1U))
      insertOne();
    else
      deleteOne();
    if (step_ == kind_.steps / 8) addIndexes();
    if (step_ % 32 == 0) lookUp();
    if (step_ % 512 == 0) compareWalks();
    if (HasFatalFailure()) FAIL() << "step " << step_;
  }
  while (!model_.empty() && !HasFatalFailure()) deleteOne();
  compareWalks();
}

INSTANTIATE_TEST_SUITE_P(Tables, TableModel,
                         testing::Values(Kind{"keyedDense", true, true, false, false, 4000, 6},
                                         Kind{"keyed", true, true, false, false, 8000, 900},
                                         Kind{"keyedMerging", true, false, false, true, 4000, 20},
                                         Kind{"keylessDense", false, true, false, false, 4000, 4},
                                         Kind{"keyless", false, false, false, false, 8000, 500},
                                         Kind{"orderedUnique", false, true, true, false, 6000, 900},
                                         Kind{"orderedMerging", false, true, true, true, 6000, 900},
                                         Kind{"hashedUnique", false, false, true, false, 6000, 900},
                                         Kind{"hashedMerging", false, false, true, true, 6000, 900}),
                         [](const auto& test) { return std::string(test.param.name); });

// Enough rows for a tree of three levels and for many chunks, removed in another order than they came in or
// in the same, while a cursor stands among them. A second index comes when the table is full.
TEST(Table, ManyRowsInAndOut) {
  for (const bool keyed : {true, false}) {
    Fixture fixture(keyed);
    fixture.reader.reset();
    std::vector<unsigned> keys(20000);
    for (unsigned i = 0; i < keys.size(); ++i) keys[i] = i;
    std::mt19937 random(5);
    for (unsigned round = 0; round < 4; ++round) {
      for (const unsigned key : keys) fixture.insert(key, 0);
      // Equal in all rows, so they stand in order of arrival.
      if (round == 1) fixture.addColumns({"v"});
      const std::vector<unsigned> arrived(keys);
      if (round % 2 == 0) std::shuffle(keys.begin(), keys.end(), random);
      std::vector<bool> isThere(keys.size(), true);
      const auto expected = [&](unsigned index) {
        std::vector<unsigned> left;
        std::copy_if(arrived.begin(), arrived.end(), std::back_inserter(left),
                     [&](unsigned key) { return isThere[key]; });
        if (keyed && index == 0) std::sort(left.begin(), left.end());
        return left;
      };
      const auto found = [&](unsigned char index) {
        std::vector<unsigned> walked;
        for (TvRowIterator i = fixture.writer->begin(index); i != fixture.writer->end(index); ++i)
          walked.push_back(columnOf(*i, keyColumn));
        return walked;
      };
      const std::vector<unsigned> all = expected(0);
      auto stand = all.begin() + 7000;
      TvRowIterator cursor = fixture.writer->begin(0);
      for (auto passed = all.begin(); passed != stand; ++passed) ++cursor;
      for (std::size_t removed = 0; removed < keys.size();) {
        const unsigned key = keys[removed++];
        fixture.writer->rowDel(fixture.row(key, 0));
        isThere[key] = false;
        if (removed % 1000 != 0) continue;
        for (unsigned probed = 0; probed < keys.size(); probed += 7) {
          BaseRow row;
          ASSERT_EQ(fixture.writer->findRow(fixture.row(probed, 0), 0, row), isThere[probed]);
          ASSERT_EQ(row.isNull(), !isThere[probed]);
          if (isThere[probed]) {
            ASSERT_EQ(columnOf(row, keyColumn), probed);
          }
        }
        for (unsigned index = 0; index <= fixture.indexes; ++index)
          ASSERT_EQ(found(static_cast<unsigned char>(index)), expected(index));
        stand = std::find_if(stand, all.end(), [&](unsigned next) { return isThere[next]; });
        ASSERT_EQ((*cursor).isNull(), stand == all.end());
        if (stand == all.end()) continue;
        ASSERT_EQ(columnOf(*cursor, keyColumn), *stand);
      }
    }
  }
}

TEST(Table, MemoryStaysAtTheWorkingSet) {
  for (const bool keyed : {true, false}) {
    Fixture fixture(keyed);
    fixture.reader.reset();
    fixture.addColumns({"v"});
    fixture.addRules(true, false);
    fixture.addRules(false, false);
    const auto slide = [&](unsigned from, unsigned to) {
      for (unsigned key = from; key < to; ++key) {
        fixture.insert(key, 0);
        fixture.writer->rowDel(fixture.row(key - 500, 0));
      }
    };
    slide(0, 2000);
    const std::size_t before = allocation::inUse();
    slide(2000, 30000);
    EXPECT_LT(allocation::inUse(), before + 50);
  }
}

// Rows from anywhere: keys and deletions of other layouts, short ones, and slots that point beyond the row.
TEST(Table, RowsThatDoNotFitAreRefusedWithoutBeingRead) {
  Database database;
  Table& table =
      database.createTable("t", {{"k", TypeUint32, false, true}, {"s", TypeString}, {"n", TypeUint32}});
  Table& bag =
      database.createTable("bag", {{"s", TypeString}, {"a", TypeUint16, true}, {"g", TypeString, true}});
  table.addIndex({"s"});
  const auto writer = makeWriter(database, "t");
  const auto bagWriter = makeWriter(database, "bag");
  BaseRow stored = makeRow(table, {"7", "\"seven\"", "0"});
  writer->rowIs(stored);

  BaseRow shortRow(14);
  EXPECT_EQ(thrown<TvOutOfRange>([&] { writer->rowIs(shortRow); }),
            "table t: row of 14 bytes does not fit, fixed length is 20");
  EXPECT_EQ(thrown<TvOutOfRange>([&] { (void)writer->find(BaseRow(11), 0); }),
            "table t: row of 11 bytes does not fit, fixed length is 20");
  EXPECT_EQ(thrown<TvOutOfRange>([&] { (void)writer->lower_bound(BaseRow(15), 1); }),
            "table t: row of 15 bytes does not fit, fixed length is 20");
  EXPECT_THROW((void)writer->find(BaseRow(), 0), TvNullRow);
  writer->rowDel(BaseRow());
  writer->rowDel(BaseRow(11));
  EXPECT_EQ(table.size(), 1U);
  // The key is there, and more is not asked of a key.
  shortRow.setColumn(tv_contentOffset, 7U, 14);
  EXPECT_EQ(writer->find(shortRow, 0), writer->begin(0));

  const auto withSlot = [&](std::vector<unsigned char> slot, len_t offset,
                            std::vector<unsigned char> payload) {
    BaseRow row(static_cast<len_t>(bag.fixedLength() + payload.size()));
    std::copy(slot.begin(), slot.end(), row.rwRowBuf() + offset);
    std::copy(payload.begin(), payload.end(), row.rwRowBuf() + bag.fixedLength());
    return row;
  };
  const std::vector<std::pair<BaseRow, const char*>> broken{
      {withSlot({21, 0, 1, 0x80}, 8, {'x'}), "'s' reaches beyond its row of 21 bytes"},
      {withSlot({20, 0, 2, 0x80}, 8, {'x'}), "'s' reaches beyond its row of 21 bytes"},
      {withSlot({0xFF, 0xFF, 0xFF, 0xFF}, 8, {'x'}), "'s' reaches beyond its row of 21 bytes"},
      {withSlot({20, 0, 1, 0x80}, 12, {0}), "'a' reaches beyond its row of 21 bytes"},
      {withSlot({20, 0, 3, 0x80}, 12, {1, 0, 9}), "'a' reaches beyond its row of 23 bytes"},
      {withSlot({20, 0, 4, 0x80}, 16, {2, 0, 0, 0}), "'g' reaches beyond its row of 24 bytes"},
      {withSlot({20, 0, 6, 0x80}, 16, {1, 0, 3, 0, 'a', 'b'}), "'g' reaches beyond its row of 26 bytes"},
      {withSlot({20, 0, 7, 0x80}, 16, {2, 0, 1, 0, 0, 0, 'a'}), "'g' reaches beyond its row of 27 bytes"},
  };
  for (const auto& [row, what] : broken) {
    BaseRow inserted = row;
    const std::string expected = std::string("table bag: column ") + what;
    EXPECT_EQ(thrown<TvOutOfRange>([&] { bagWriter->rowIs(inserted); }), expected);
    EXPECT_EQ(thrown<TvOutOfRange>([&] { (void)bagWriter->find(inserted, 0); }), expected);
    bagWriter->rowDel(inserted);
  }
  EXPECT_EQ(bag.size(), 0U);
}

}  // namespace
}  // namespace Tavro
