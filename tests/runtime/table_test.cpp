#include <algorithm>
#include <random>
#include <tuple>

#include "support.h"

namespace Tavro {
namespace {

using Random = std::mt19937;

unsigned below(Random& random, unsigned limit) { return static_cast<unsigned>(random() % limit); }

struct Values {
  int number;
  std::string text;
  double weight;

  bool operator==(const Values&) const = default;
};

struct ModelCase {
  const char* name;
  bool keyed;
  unsigned steps;
  // Values are drawn from so many numbers and texts.
  unsigned range;
};

// A table and the same rows in a plain vector, in order of arrival.
class TableModel : public testing::TestWithParam<ModelCase> {
 protected:
  TableModel()
      : table_(database_.createTable("t", {{"number", TypeInt32, false, GetParam().keyed},
                                           {"text", TypeString, false, GetParam().keyed},
                                           {"weight", TypeDouble}})) {
    table_.addIndex({"weight"});
    writer_ = makeWriter(database_, "t");
  }

  Values draw() {
    const unsigned range = GetParam().range;
    // Texts that differ within the first bytes of a key, or behind a common beginning only.
    const std::string beginning = below(random_, 2) == 0 ? "" : "a text longer than the head of a key ";
    return {static_cast<int>(below(random_, range)) - static_cast<int>(range) / 2,
            beginning + std::to_string(below(random_, range)), below(random_, range) / 4.0};
  }
  BaseRow rowOf(const Values& values) const {
    BaseRow row = table_.newRow();
    const auto& columns = table_.columns();
    row.setColumn(columns[0].offset(), values.number, table_.fixedLength());
    row.setColumn(columns[1].offset(), values.text, table_.fixedLength());
    row.setColumn(columns[2].offset(), values.weight, table_.fixedLength());
    return row;
  }
  Values valuesOf(const BaseRow& row) const {
    Values values;
    StringValueReference text;
    row.getColumn(table_.columns()[0].offset(), values.number);
    row.getColumn(table_.columns()[1].offset(), text);
    row.getColumn(table_.columns()[2].offset(), values.weight);
    values.text = text.view();
    return values;
  }

  static auto key(const Values& values) { return std::tie(values.number, values.text); }
  bool matches(const Values& left, const Values& right) const {
    return GetParam().keyed ? key(left) == key(right) : left == right;
  }
  auto findInModel(const Values& wanted) {
    return std::find_if(model_.begin(), model_.end(), [&](const Values& v) { return matches(v, wanted); });
  }
  bool precedes(const Values& left, const Values& right, unsigned index) const {
    if (index == 1) return left.weight < right.weight;
    return GetParam().keyed && key(left) < key(right);
  }
  std::vector<Values> modelUnder(unsigned index) const {
    std::vector<Values> sorted = model_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&](const Values& l, const Values& r) { return precedes(l, r, index); });
    return sorted;
  }

  void insertOne() {
    const Values values = draw();
    BaseRow row = rowOf(values);
    writer_->rowIs(row);
    if (GetParam().keyed) std::erase_if(model_, [&](const Values& v) { return matches(v, values); });
    model_.push_back(values);
  }
  void deleteOne() {
    const Values values = !model_.empty() && below(random_, 4) != 0
                              ? model_[below(random_, static_cast<unsigned>(model_.size()))]
                              : draw();
    writer_->rowDel(rowOf(values));
    if (const auto found = findInModel(values); found != model_.end()) model_.erase(found);
  }
  void lookUp() {
    const Values wanted = draw();
    const TvRowIterator found = writer_->find(rowOf(wanted), 0);
    const auto expected = findInModel(wanted);
    ASSERT_EQ(found == writer_->end(0), expected == model_.end());
    if (expected != model_.end()) {
      ASSERT_EQ(valuesOf(*found), *expected);
    }
    for (unsigned char index = 0; index <= 1; ++index) {
      if (index == 0 && !GetParam().keyed) continue;
      const std::vector<Values> sorted = modelUnder(index);
      const auto bound =
          std::lower_bound(sorted.begin(), sorted.end(), wanted,
                           [&](const Values& l, const Values& r) { return precedes(l, r, index); });
      TvRowIterator position = writer_->lower_bound(rowOf(wanted), index);
      for (auto expectedRow = bound; expectedRow != sorted.end() && expectedRow - bound < 3; ++expectedRow)
        ASSERT_EQ(valuesOf(*position++), *expectedRow);
      if (bound == sorted.end()) {
        ASSERT_EQ(position, writer_->end(index));
      }
    }
  }
  void compareWalks() {
    ASSERT_EQ(table_.size(), model_.size());
    for (unsigned char index = 0; index <= 1; ++index) {
      std::vector<Values> walked;
      for (TvRowIterator i = writer_->begin(index); i != writer_->end(index); ++i)
        walked.push_back(valuesOf(*i));
      ASSERT_EQ(walked, modelUnder(index)) << "index " << int{index};
    }
  }

  Database database_;
  Table& table_;
  std::unique_ptr<TvTableInterface> writer_;
  std::vector<Values> model_;
  Random random_{2024};
};

// Waves of growth and decline, so that the trees grow and shrink.
TEST_P(TableModel, HoldsWhatAVectorHolds) {
  for (unsigned step = 0; step < GetParam().steps; ++step) {
    const unsigned wave = 4 * step / GetParam().steps;
    if (below(random_, 8) < (wave % 2 == 0 ? 6U : 2U))
      insertOne();
    else
      deleteOne();
    if (step % 64 == 0) lookUp();
    if (step % 1024 == 0) compareWalks();
    if (HasFatalFailure()) FAIL() << "step " << step;
  }
  compareWalks();
  while (!model_.empty()) deleteOne();
  compareWalks();
}

INSTANTIATE_TEST_SUITE_P(Tables, TableModel,
                         testing::Values(ModelCase{"keyedDense", true, 4000, 6},
                                         ModelCase{"keyed", true, 12000, 500},
                                         ModelCase{"keylessDense", false, 4000, 4},
                                         ModelCase{"keyless", false, 12000, 500}),
                         [](const auto& test) { return std::string(test.param.name); });

// Enough rows for a tree of three levels, removed in another order than they came in.
TEST(Table, ManyRowsInAndOut) {
  Database database;
  Table& table = database.createTable("t", {{"k", TypeUint32, false, true}});
  const auto writer = makeWriter(database, "t");
  std::vector<unsigned> keys(20000);
  for (unsigned i = 0; i < keys.size(); ++i) keys[i] = i;
  const auto rowOf = [&](unsigned key) {
    BaseRow row = table.newRow();
    row.setColumn(tv_contentOffset, key, table.fixedLength());
    return row;
  };
  Random random(5);
  for (unsigned round = 0; round < 4; ++round) {
    for (const unsigned key : keys) {
      BaseRow row = rowOf(key);
      writer->rowIs(row);
    }
    if (round % 2 == 0) std::shuffle(keys.begin(), keys.end(), random);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      writer->rowDel(rowOf(keys[i]));
      if (i % 997 != 0) continue;
      std::vector<unsigned> left(keys.begin() + static_cast<std::ptrdiff_t>(i) + 1, keys.end());
      std::sort(left.begin(), left.end());
      TvRowIterator position = writer->begin(0);
      for (const unsigned key : left) {
        unsigned found = 0;
        (*position++).getColumn(tv_contentOffset, found);
        ASSERT_EQ(found, key);
        ASSERT_NE(writer->find(rowOf(key), 0), writer->end(0));
      }
      ASSERT_EQ(position, writer->end(0));
    }
    EXPECT_EQ(table.size(), 0U);
  }
}

TEST(Table, RowsAreSharedAndNeverChanged) {
  Database database;
  Table& table = database.createTable("t", {{"k", TypeUint8, false, true}});
  const auto writer = makeWriter(database, "t");
  BaseRow row = makeRow(table, {"1"});
  writer->rowIs(row);
  BaseRow stored = *writer->begin(0);
  EXPECT_EQ(stored.rowBuf(), row.rowBuf());
  stored.setColumn(tv_contentOffset, static_cast<unsigned char>(2), table.fixedLength());
  row.setColumn(tv_contentOffset, static_cast<unsigned char>(3), table.fixedLength());
  EXPECT_EQ(walk(table, *writer, 0), std::vector<std::string>{"1"});
}

TEST(Table, AnIndexMayComeAfterTheRows) {
  Database database;
  Table& table = database.createTable("t", {{"k", TypeUint8, false, true}, {"v", TypeUint8}});
  const auto writer = makeWriter(database, "t");
  for (const auto& cells : {std::vector<std::string>{"9", "1"}, {"5", "0"}, {"2", "1"}}) {
    BaseRow row = makeRow(table, cells);
    writer->rowIs(row);
  }
  table.addIndex({"v"});
  using Rows = std::vector<std::string>;
  EXPECT_EQ(walk(table, *writer, 1), (Rows{"5|0", "9|1", "2|1"}));
  // A row that is replaced arrives anew.
  BaseRow row = makeRow(table, {"9", "1"});
  writer->rowIs(row);
  EXPECT_EQ(walk(table, *writer, 1), (Rows{"5|0", "2|1", "9|1"}));
  writer->rowDel(makeRow(table, {"2", "77"}));
  EXPECT_EQ(walk(table, *writer, 1), (Rows{"5|0", "9|1"}));
}

TEST(Table, MemoryStaysAtTheWorkingSet) {
  Database database;
  Table& table = database.createTable("t", {{"k", TypeUint32, false, true}, {"v", TypeUint8}});
  Table& keyless = database.createTable("keyless", {{"k", TypeUint32}});
  table.addIndex({"v"});
  const auto writer = makeWriter(database, "t");
  const auto keylessWriter = makeWriter(database, "keyless");
  const auto change = [&](unsigned key, bool insert) {
    for (const auto& [t, w] : {std::pair(&table, writer.get()), std::pair(&keyless, keylessWriter.get())}) {
      BaseRow row = t->newRow();
      row.setColumn(tv_contentOffset, key, t->fixedLength());
      if (insert)
        w->rowIs(row);
      else
        w->rowDel(row);
    }
  };
  const auto slide = [&](unsigned from, unsigned to) {
    for (unsigned key = from; key < to; ++key) {
      change(key, true);
      if (key >= 500) change(key - 500, false);
    }
  };
  slide(0, 2000);
  const std::size_t before = allocation::inUse();
  slide(2000, 60000);
  EXPECT_LT(allocation::inUse(), before + 50);
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
  EXPECT_EQ(messageOf<TvOutOfRange>([&] { writer->rowIs(shortRow); }),
            "table t: row of 14 bytes does not fit, fixed length is 20");
  EXPECT_EQ(messageOf<TvOutOfRange>([&] { (void)writer->find(BaseRow(11), 0); }),
            "table t: row of 11 bytes does not fit, fixed length is 20");
  EXPECT_EQ(messageOf<TvOutOfRange>([&] { (void)writer->lower_bound(BaseRow(15), 1); }),
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
    EXPECT_EQ(messageOf<TvOutOfRange>([&] { bagWriter->rowIs(inserted); }), expected);
    EXPECT_EQ(messageOf<TvOutOfRange>([&] { (void)bagWriter->find(inserted, 0); }), expected);
    bagWriter->rowDel(inserted);
  }
  EXPECT_EQ(bag.size(), 0U);
}

}  // namespace
}  // namespace Tavro
