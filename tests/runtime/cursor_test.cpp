#include <algorithm>
#include <array>
#include <random>
#include <set>

#include "support.h"

namespace Tavro {
namespace {

BaseRow nextOf(TvRowIterator& cursor) {
  BaseRow row;
  const bool wasThere = cursor.next(row);
  EXPECT_EQ(wasThere, !row.isNull());
  return row;
}

// Under every kind of index in turn. Keys are never used again, so that a row seen twice is one row.
TEST(Cursor, YieldsEveryRowThatStaysOnceWhateverComesAndGoes) {
  std::mt19937 random(11);
  for (unsigned round = 0; round < 400; ++round) {
    Fixture fixture(round % 2 == 0);
    fixture.addColumns({"v", "k"});
    fixture.addRules(true, false, valueColumn);
    fixture.addRules(false, true);
    const auto index = static_cast<unsigned char>(round / 2 % 4);
    const auto rowOf = [&](unsigned key) { return fixture.row(key, key * 37 % 256); };
    std::vector<unsigned> alive;
    std::vector<unsigned> keys(60);
    for (unsigned i = 0; i < keys.size(); ++i) keys[i] = 2 * i;
    std::shuffle(keys.begin(), keys.end(), random);
    std::size_t next = 0;
    const auto insertNext = [&] {
      fixture.insert(keys[next], keys[next] * 37 % 256);
      alive.push_back(keys[next++]);
    };
    while (next < 30) insertNext();
    std::set<unsigned> throughout(alive.begin(), alive.end());
    std::array<TvRowIterator, 3> cursors;
    std::array<std::vector<unsigned>, 3> seen;
    for (TvRowIterator& cursor : cursors) cursor = fixture.writer->begin(index);
    for (bool going = true; going;) {
      going = false;
      for (std::size_t c = 0; c < cursors.size(); ++c) {
        if (cursors[c] == fixture.writer->end(index)) continue;
        going = true;
        if (random() % 2 == 0) continue;
        seen[c].push_back(columnOf(c == 0 ? nextOf(cursors[c]) : *cursors[c]++, keyColumn));
      }
      if (random() % 3 == 0 && next < keys.size()) insertNext();
      if (random() % 2 == 0 && !alive.empty()) {
        // Often the very row that a cursor stands on.
        const BaseRow under = *cursors[random() % cursors.size()];
        const unsigned key = !under.isNull() && random() % 2 == 0 ? columnOf(under, keyColumn)
                                                                  : alive[random() % alive.size()];
        fixture.writer->rowDel(rowOf(key));
        std::erase(alive, key);
        throughout.erase(key);
      }
    }
    for (const std::vector<unsigned>& keysSeen : seen) {
      const std::set<unsigned> distinct(keysSeen.begin(), keysSeen.end());
      ASSERT_EQ(distinct.size(), keysSeen.size()) << "round " << round;
      ASSERT_TRUE(std::includes(distinct.begin(), distinct.end(), throughout.begin(), throughout.end()));
    }
  }
}

TEST(Cursor, StandsOnTheSuccessorOfADeletedOrReplacedRow) {
  Fixture fixture(true);
  fixture.addRules(false, false);
  for (unsigned char index = 0; index <= 1; ++index) {
    for (unsigned k = 1; k <= 3; ++k) fixture.insert(k, 0);
    const auto rowAt = [&](const TvRowIterator& cursor) { return textOf(fixture.table, *cursor); };
    TvRowIterator cursor = fixture.writer->begin(index);
    const TvRowIterator copy = cursor;
    fixture.writer->rowDel(fixture.row(1, 0));
    EXPECT_EQ(rowAt(cursor), text(2, 0));
    EXPECT_EQ(cursor, copy);
    fixture.insert(2, 9);
    EXPECT_EQ(rowAt(cursor++), text(3, 0));
    // In order of arrival the row that replaced it is the last.
    if (index == 1) {
      EXPECT_EQ(rowAt(cursor++), text(2, 9));
    }
    EXPECT_EQ(cursor, fixture.writer->end(index));
    EXPECT_EQ(rowAt(copy), text(3, 0));
    for (const unsigned k : {2U, 3U}) fixture.writer->rowDel(fixture.row(k, 0));
    EXPECT_EQ(copy, fixture.writer->end(index));
    EXPECT_TRUE((*copy).isNull());
    EXPECT_TRUE((*cursor++).isNull());
    EXPECT_TRUE(nextOf(cursor).isNull());
    EXPECT_EQ(cursor, fixture.writer->end(index));
    EXPECT_NE(TvRowIterator(), fixture.writer->end(index));
  }
}

TEST(Cursor, OutlivesItsTableAsInterfacesDo) {
  Fixture fixture(true);
  fixture.insert(1, 0);
  TvRowIterator cursor = fixture.writer->begin(0);
  TvRowIterator copy = cursor++;
  fixture.database->clear();
  EXPECT_EQ(copy, TvRowIterator());
  EXPECT_TRUE((*copy++).isNull());
  cursor = copy;
  EXPECT_EQ(thrown<std::logic_error>([&] { (void)fixture.writer->begin(0); }),
            "interface writer is not bound to a table");
  fixture.database.reset();
  for (const bool ready : {false, true}) fixture.reader->clientReadyIs(ready);
  EXPECT_FALSE(fixture.reader->runnable());
  EXPECT_EQ(thrown<std::logic_error>([&] { fixture.reader->activate(true); }),
            "interface reader is not bound to a table");
}

}  // namespace
}  // namespace Tavro
