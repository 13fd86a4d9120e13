#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "support.h"

namespace Tavro {
namespace {

// Strings with zero bytes, and around the length of a key's head. As a key, and as a further index in which
// every row stands twice.
TEST(KeyOrder, WalksFindsAndBoundsStrings) {
  using namespace std::string_literals;
  const std::string head = "0123456789abcdef";
  const Texts sorted{"",         "\0"s,       "\0\0"s,    "\0a"s, "\x01", head,      head + '\0',
                     head + "b", head + "bb", head + "c", "a",    "a\0"s, "a\0b"s,   "a\x01",
                     "aa",       "b",         "\x7f",     "\x80", "\xff", "\xff\xff"};
  Texts shuffled = sorted;
  std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(7));
  Fixture keyed(true), plain(false);
  plain.addColumns({"s"});
  for (const std::string& s : shuffled) {
    keyed.insert(1, 0, s);
    for (const unsigned v : {2U, 1U}) plain.insert(1, v, s);
  }
  Texts rows, twins;
  for (const std::string& s : sorted) {
    rows.push_back(text(1, 0, s));
    twins.push_back(text(1, 2, s));
    twins.push_back(text(1, 1, s));
    EXPECT_EQ(textOf(plain.table, *plain.writer->find(plain.row(1, 0, s), 1)), text(1, 2, s));
    EXPECT_EQ(textOf(plain.table, *plain.writer->lower_bound(plain.row(1, 0, s), 1)), text(1, 2, s));
    EXPECT_EQ(textOf(plain.table, *plain.writer->find(plain.row(1, 1, s), 0)), text(1, 1, s));
  }
  EXPECT_EQ(keyed.walkOf(0), rows);
  EXPECT_EQ(plain.walkOf(1), twins);

  // Without the row itself, a bound yields its successor.
  rows.push_back("null");
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    BaseRow row = keyed.row(1, 0, sorted[i]);
    EXPECT_EQ(textOf(keyed.table, *keyed.writer->find(row, 0)), rows[i]);
    EXPECT_EQ(textOf(keyed.table, *keyed.writer->lower_bound(row, 0)), rows[i]);
    keyed.writer->rowDel(row);
    EXPECT_EQ(keyed.writer->find(row, 0), keyed.writer->end(0));
    EXPECT_EQ(textOf(keyed.table, *keyed.writer->lower_bound(row, 0)), rows[i + 1]);
    keyed.writer->rowIs(row);
  }
}

TEST(KeyOrder, ZerosAreOneKeyAndSoAreAllNaNs) {
  Database database;
  Table& table = database.createTable("t", {{"k", TypeDouble, false, true}});
  const auto writer = makeWriter(database, "t");
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double payloadNaN = std::nan("1234");
  for (const double value : {0.0, -0.0, nan, std::copysign(nan, -1.0), payloadNaN}) {
    BaseRow row = table.newRow();
    row.setColumn(tv_contentOffset, value, table.fixedLength());
    writer->rowIs(row);
  }
  EXPECT_EQ(walk(table, *writer, 0).size(), 2U);
}

}  // namespace
}  // namespace Tavro
