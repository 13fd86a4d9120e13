#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

#include "../thrown.h"
#include "Tavro/baseRow.h"

namespace Tavro {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes imageOf(const BaseRow& row) { return {row.rowBuf(), row.rowBuf() + row.length()}; }

StringValueReference viewOf(const BaseRow& row, len_t offset) {
  StringValueReference view;
  row.getColumn(offset, view);
  return view;
}

std::string stringOf(const BaseRow& row, len_t offset) { return std::string(viewOf(row, offset).view()); }

// Two variable columns and nothing else.
constexpr len_t first = 8, second = 12, fixedLength = 16;

TEST(Row, FixedColumnsStandInPlaceUnaligned) {
  BaseRow row(28);
  row.rowTypeIs(0x0102);
  row.setColumn<unsigned char>(8, 0xAB, 28);
  row.setColumn<short>(9, -2, 28);
  row.setColumn<double>(11, 1.0, 28);
  row.setColumn<bool>(19, true, 28);
  row.setColumn(20, IpAddr("10.1.2.3"), 28);
  row.setColumn<unsigned int>(24, 0x01020304, 28);
  EXPECT_EQ(imageOf(row), (Bytes{28, 0, 2, 1,    0,    0, 0,  0, 0xAB, 0xFE, 0xFF, 0, 0, 0,
                                 0,  0, 0, 0xF0, 0x3F, 1, 10, 1, 2,    3,    4,    3, 2, 1}));
}

TEST(Row, PayloadsReplaceGrowAndMove) {
  BaseRow row(fixedLength);
  row.setColumn(first, std::string("abc"), fixedLength);
  row.setColumn(second, IpGenPrefix("10.1.0.0/16"), fixedLength);
  const Bytes both{24, 0, 0, 0, 0, 0, 0, 0, 16, 0, 3, 0x80, 19, 0, 5, 0x80, 'a', 'b', 'c', 10, 1, 0, 0, 16};
  EXPECT_EQ(imageOf(row), both);

  row.setColumn(first, std::string("x"), fixedLength);
  Bytes shrunk = both;
  shrunk[10] = 1;
  shrunk[16] = 'x';
  EXPECT_EQ(imageOf(row), shrunk) << "takes the place of the longer one, the row keeps its length";

  row.setColumn(second, IpGenPrefix("::/3"), fixedLength);
  Bytes grown = shrunk;
  grown[0] = 36;
  grown[14] = 17;
  std::fill(grown.begin() + 19, grown.end(), 0);
  grown.resize(36);
  grown[35] = 3;
  EXPECT_EQ(imageOf(row), grown) << "the last payload grows in place";

  row.setColumn(first, std::string("yz"), fixedLength);
  grown[10] = 2;
  grown[16] = 'y';
  grown[17] = 'z';
  EXPECT_EQ(imageOf(row), grown) << "what was once longer has kept its room";

  row.setColumn(first, std::string("wxyz"), fixedLength);
  grown[0] = 40;
  grown[8] = 36;
  grown[10] = 4;
  grown.insert(grown.end(), {'w', 'x', 'y', 'z'});
  EXPECT_EQ(imageOf(row), grown) << "any other moves behind the end";

  row.setColumn(first, std::string(), fixedLength);
  std::fill_n(grown.begin() + 8, 3, 0);
  EXPECT_EQ(imageOf(row), grown) << "an empty value leaves 0, 0, 0, 0x80";

  row.setColumn(second, ArrayReference<int>(), fixedLength);
  EXPECT_EQ(Bytes(row.rowBuf() + second, row.rowBuf() + second + 4), (Bytes{0, 0, 0, 0x80}));
}

TEST(Row, PayloadsThatGrowAndShrinkInTurnDoNotGrowTheRow) {
  BaseRow row(fixedLength);
  std::vector<BaseRow> stored;
  for (int turn = 0; turn < 5000; ++turn) {
    const auto length = static_cast<std::size_t>(turn * 7 % 100);
    row.setColumn(first, std::string(length, 'a'), fixedLength);
    row.setColumn(second, std::string(99 - length, 'b'), fixedLength);
    // A copy, as a table has one of an inserted row, makes the next write move the row.
    if (turn % 3 == 0) stored.push_back(row);
    ASSERT_LE(row.length(), 1000) << "turn " << turn;
    StringValueReference text;
    row.getColumn(first, text);
    ASSERT_EQ(std::string(text.bytes(), text.length()), std::string(length, 'a'));
    row.getColumn(second, text);
    ASSERT_EQ(std::string(text.bytes(), text.length()), std::string(99 - length, 'b'));
  }
}

TEST(Row, NullRowsAndSlotsThatWereNeverWrittenReadLikeEmptyOnes) {
  for (const BaseRow& row : {BaseRow(), BaseRow(fixedLength)}) {
    double number = 1;
    IpGenPrefix prefix("1.2.3.4/5");
    ArrayReference<StringValueReference> array(reinterpret_cast<const unsigned char*>("array"), 5);
    row.getColumn(first, number);
    row.getColumn(first, prefix);
    row.getColumn(first, array);
    EXPECT_EQ(number, 0);
    EXPECT_EQ(prefix.family(), NoAddress);
    EXPECT_EQ(array.payload(), nullptr);
    EXPECT_EQ(array.length(), 0);
    EXPECT_EQ(viewOf(row, first).length(), 0);
  }
  BaseRow row(fixedLength);
  row.setColumn(first, std::string("abc"), fixedLength);
  row.rwRowBuf()[first + 3] &= 0x7F;
  EXPECT_EQ(stringOf(row, first), "abc") << "the top bit is of no account";
}

TEST(Row, NullRowsAreCountedAndRefuseWrites) {
  BaseRow null;
  const BaseRow shared = null;
  EXPECT_EQ(null.useCount(), 2);
  EXPECT_EQ(null.rowBuf(), nullptr);
  EXPECT_THROW(null.rwRowBuf(), TvNullRow);
  EXPECT_THROW(null.setColumn(first, 1, fixedLength), TvNullRow);
  EXPECT_THROW(null.setColumn(first, std::string("a"), fixedLength), TvNullRow);
  EXPECT_THROW(null.makeFreeSpace(first, 1, fixedLength), TvNullRow);
  BaseRow lonely;
  EXPECT_EQ(lonely.useCount(), 1);
  EXPECT_THROW(lonely.setColumn(first, std::string(), fixedLength), TvNullRow);
}

TEST(Row, LimitsLeaveTheRowAsItWas) {
  BaseRow row(fixedLength);
  const std::string longest(32767, 'l');
  row.setColumn(first, longest, fixedLength);
  EXPECT_EQ(stringOf(row, first), longest);
  Bytes before = imageOf(row);
  EXPECT_EQ(thrown<TvOutOfRange>([&] { row.setColumn(first, longest + "x", fixedLength); }),
            "payload of 32768 bytes exceeds the limit of 32767 bytes");
  EXPECT_EQ(imageOf(row), before);
  EXPECT_EQ(thrown<TvOutOfRange>([&] { row.setColumn(second, longest, fixedLength); }),
            "row of 65550 bytes exceeds the limit of 65535 bytes");
  EXPECT_EQ(imageOf(row), before);
  row.setColumn(second, std::string(65535 - before.size(), 's'), fixedLength);
  EXPECT_EQ(row.length(), 65535);
  EXPECT_EQ(stringOf(row, first), longest);
}

TEST(Row, AViewOfTheRowItselfMayBeWritten) {
  BaseRow row(fixedLength);
  row.setColumn(first, std::string("a text that is long enough to move"), fixedLength);
  row.setColumn(first, StringValueReference(viewOf(row, first).bytes() + 2, 20), fixedLength);
  EXPECT_EQ(stringOf(row, first), "text that is long en") << "source and target overlap";
}

// The length of the fixed part that a writer passes is often that of another row.
TEST(Row, WritesNeverDisturbOtherColumns) {
  constexpr len_t numberOffset = 16, rowLength = 32;
  constexpr unsigned number = 0xCAFED00D;
  const std::vector<len_t> offsets{8, 12, 20, 24, 28};
  std::mt19937 random(20240229);
  const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  for (int round = 0; round < 20; ++round) {
    BaseRow row(rowLength);
    row.setColumn(numberOffset, number, rowLength);
    std::map<len_t, std::string> model;
    for (int step = 0; step < 300; ++step) {
      const len_t target = offsets[below(5)], source = offsets[below(5)];
      const auto fdLen = static_cast<len_t>(1 + below(60));
      const BaseRow stored = below(4) == 0 ? row : BaseRow();
      const Bytes before = stored.isNull() ? Bytes() : imageOf(stored);
      if (below(4) == 0) {
        row.setColumn(target, viewOf(row, source), fdLen);
        model[target] = std::string(model[source]);
      } else {
        model[target] = std::string(below(40), static_cast<char>('a' + below(26)));
        row.setColumn(target, model[target], fdLen);
      }
      for (const len_t offset : offsets)
        ASSERT_EQ(stringOf(row, offset), model[offset]) << round << ' ' << step;
      unsigned kept = 0;
      row.getColumn(numberOffset, kept);
      ASSERT_EQ(kept, number);
      if (!stored.isNull()) {
        ASSERT_EQ(imageOf(stored), before);
      }
    }
  }
}

TEST(RowDeathTest, ProgrammersMistakesAbort) {
  EXPECT_DEATH(BaseRow(7), "Assertion `len >= tv_contentOffset' failed in Tavro::BaseRow::BaseRow");
  BaseRow row(fixedLength);
  EXPECT_DEATH(row.setColumn(first, 1, 0), "Assertion `fdLen != 0' failed in Tavro::BaseRow::setColumn");
  EXPECT_DEATH(row.setColumn(first, std::string(), 0), "fdLen != 0");
}

}  // namespace
}  // namespace Tavro
