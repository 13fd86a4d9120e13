#include <algorithm>
#include <array>
#include <random>
#include <set>

#include "support.h"

namespace Tavro {
namespace {

class Cursors : public testing::TestWithParam<bool> {
 protected:
  Cursors() : table_(database_.createTable("t", {{"k", TypeUint32, false, GetParam()}, {"v", TypeUint8}})) {
    table_.addIndex({"v", "k"});
    writer_ = makeWriter(database_, "t");
  }
  BaseRow rowOf(unsigned key) const {
    return makeRow(table_, {std::to_string(key), std::to_string(key * 37 % 256)});
  }
  void insert(unsigned key) {
    BaseRow row = rowOf(key);
    writer_->rowIs(row);
  }
  static unsigned keyOf(const BaseRow& row) {
    unsigned key = 0;
    row.getColumn(tv_contentOffset, key);
    return key;
  }

  Database database_;
  Table& table_;
  std::unique_ptr<TvTableInterface> writer_;
};

// Keys are never used again, so that a row seen twice is one row.
TEST_P(Cursors, YieldEveryRowThatStaysOnceWhateverComesAndGoes) {
  std::mt19937 random(11);
  for (unsigned round = 0; round < 200; ++round) {
    const unsigned char index = round % 2 == 0 ? 0 : 1;
    std::vector<unsigned> alive;
    std::vector<unsigned> keys(60);
    for (unsigned i = 0; i < keys.size(); ++i) keys[i] = 2 * i;
    std::shuffle(keys.begin(), keys.end(), random);
    for (std::size_t i = 0; i < 30; ++i) {
      insert(keys[i]);
      alive.push_back(keys[i]);
    }
    std::set<unsigned> throughout(alive.begin(), alive.end());
    std::size_t next = 30;
    std::array<TvRowIterator, 3> cursors;
    std::array<std::vector<unsigned>, 3> seen;
    for (TvRowIterator& cursor : cursors) cursor = writer_->begin(index);
    for (bool going = true; going;) {
      going = false;
      for (std::size_t c = 0; c < cursors.size(); ++c) {
        if (cursors[c] == writer_->end(index)) continue;
        going = true;
        if (random() % 2 == 0) seen[c].push_back(keyOf(*cursors[c]++));
      }
      if (random() % 3 == 0 && next < keys.size()) {
        insert(keys[next]);
        alive.push_back(keys[next++]);
      }
      if (random() % 2 == 0 && !alive.empty()) {
        // Often the very row that a cursor stands on.
        const BaseRow under = *cursors[random() % cursors.size()];
        const unsigned key =
            !under.isNull() && random() % 2 == 0 ? keyOf(under) : alive[random() % alive.size()];
        writer_->rowDel(rowOf(key));
        std::erase(alive, key);
        throughout.erase(key);
      }
    }
    for (const std::vector<unsigned>& keysSeen : seen) {
      const std::set<unsigned> distinct(keysSeen.begin(), keysSeen.end());
      ASSERT_EQ(distinct.size(), keysSeen.size()) << "round " << round;
      ASSERT_TRUE(std::includes(distinct.begin(), distinct.end(), throughout.begin(), throughout.end()));
    }
    for (const unsigned key : alive) writer_->rowDel(rowOf(key));
  }
}

INSTANTIATE_TEST_SUITE_P(Tables, Cursors, testing::Bool(),
                         [](const auto& test) { return test.param ? "keyed" : "keyless"; });

TEST(Cursor, StandsOnTheSuccessorOfADeletedOrReplacedRow) {
  Database database;
  Table& table = database.createTable("t", {{"k", TypeUint8, false, true}, {"v", TypeUint8}});
  const auto writer = makeWriter(database, "t");
  for (const char* key : {"1", "2", "3"}) {
    BaseRow row = makeRow(table, {key, "0"});
    writer->rowIs(row);
  }
  TvRowIterator cursor = writer->begin(0);
  const TvRowIterator copy = cursor;
  writer->rowDel(makeRow(table, {"1", "0"}));
  EXPECT_EQ(textOf(table, *cursor), "2|0");
  EXPECT_EQ(cursor, copy);
  BaseRow replacement = makeRow(table, {"2", "9"});
  writer->rowIs(replacement);
  EXPECT_EQ(textOf(table, *cursor++), "3|0");
  EXPECT_EQ(cursor, writer->end(0));
  EXPECT_EQ(textOf(table, *copy), "3|0");
  writer->rowDel(makeRow(table, {"3", "0"}));
  EXPECT_EQ(copy, writer->end(0));
  EXPECT_TRUE((*copy).isNull());
  EXPECT_TRUE((*cursor++).isNull());
  EXPECT_NE(TvRowIterator(), writer->end(0));
  EXPECT_EQ(TvRowIterator(), TvRowIterator());
}

TEST(Cursor, OutlivesItsTable) {
  auto database = std::make_unique<Database>();
  Table& table = database->createTable("t", {{"k", TypeUint8, false, true}});
  auto writer = makeWriter(*database, "t");
  BaseRow row = makeRow(table, {"1"});
  writer->rowIs(row);
  TvRowIterator cursor = writer->begin(0);
  TvRowIterator copy = cursor++;
  database->clear();
  EXPECT_EQ(copy, TvRowIterator());
  EXPECT_TRUE((*copy++).isNull());
  cursor = copy;
  EXPECT_EQ(messageOf<std::logic_error>([&] { (void)writer->begin(0); }),
            "interface writer is not bound to a table");
}

}  // namespace
}  // namespace Tavro
