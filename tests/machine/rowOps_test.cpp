#include <cstdio>
#include <fstream>
#include <functional>

#include "Tavro/TvRTIndexRowOps.h"
#include "Tavro/TvRTMiscExprOps.h"
#include "support.h"

namespace Tavro::TvRT {
namespace {

constexpr len_t column = 8;
constexpr len_t fixedLength = 24;

// The rules of index 3 by a program over rows with one column.
TvPtr<RowOpsBase> rulesOf(const std::string& code, bool unique = false, bool ordered = false) {
  const std::string path = programPath();
  std::ofstream(path)
      << "bindTable 1, 24, 0, \"t\", \"a\", \"\"\nbindTable 2, 24, 0, \"t\", \"b\", \"\"\nend\n"
         "entry init\nhalt\n"
      << code;
  TvPtr<RowOpsBase> rules = genTvRtRowOps(3, unique, ordered, path);
  std::remove(path.c_str());
  return rules;
}

BaseRow number(int value) {
  BaseRow row(fixedLength);
  row.setColumn(column, value, fixedLength);
  return row;
}
int numberIn(const BaseRow& row) {
  int value = 0;
  row.getColumn(column, value);
  return value;
}

constexpr const char* numberRules =
    "entry hash\n pushCnst<uint64_t> \"0x700000005\"\n pushColumn<int32_t> 1, 8\n add<uint64_t>\n halt\n"
    "entry equals\n equalColumn<int32_t> 1, 8, 2, 8\n halt\n"
    "entry less\n pushColumn<int32_t> 1, 8\n pushColumn<int32_t> 2, 8\n lt<int32_t>\n halt\n"
    "entry autoUpdate\n pushColumn<int32_t> 1, 8\n pushColumn<int32_t> 2, 8\n add<int32_t>\n"
    " popColumn<int32_t> 1, 8\n halt\n";

TEST(RowOpsTest, KeepsNoRowAndNoOperandBehind) {
  const TvPtr<RowOpsBase> rules = rulesOf(numberRules, true, false);
  EXPECT_TRUE(rules->unique());
  EXPECT_FALSE(rules->ordered());
  EXPECT_EQ(rules->index(), 3);
  BaseRow a = number(1), b = number(2);
  // More often than the stack has room for, were anything left on it.
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(rules->hash(b), 7U) << "the low 32 bits";
    rules->autoUpdate(a, b);
    ASSERT_EQ(a.useCount(), 1);
    ASSERT_EQ(b.useCount(), 1);
    ASSERT_FALSE(rules->equals(a, b));
    ASSERT_TRUE(rules->less(b, a));
    ASSERT_EQ(a.useCount(), 1);
    ASSERT_EQ(b.useCount(), 1);
  }
  EXPECT_EQ(numberIn(a), 2001);
}

TEST(RowOpsTest, AutoUpdateCopiesASharedRowOnlyWhenItWrites) {
  const TvPtr<RowOpsBase> adding = rulesOf(numberRules);
  const TvPtr<RowOpsBase> idle =
      rulesOf("entry autoUpdate\n pushColumn<int32_t> 1, 8\n discard<int32_t>\n halt\n");
  const BaseRow stored = number(40);
  BaseRow current = stored;
  idle->autoUpdate(current, number(2));
  EXPECT_EQ(current.rowBuf(), stored.rowBuf());
  EXPECT_EQ(stored.useCount(), 2);
  adding->autoUpdate(current, number(2));
  EXPECT_EQ(numberIn(stored), 40);
  EXPECT_EQ(numberIn(current), 42);
  EXPECT_EQ(stored.useCount(), 1);
  // A row of its own is changed where it stands.
  const unsigned char* const buffer = current.rowBuf();
  adding->autoUpdate(current, number(1));
  EXPECT_EQ(current.rowBuf(), buffer);
  EXPECT_EQ(numberIn(current), 43);
}

// The program pops a value that is not there when column 8 of slot 1 is 13.
TEST(RowOpsTest, AFailedRunKeepsItsRowsUntilTheNext) {
  const std::string check =
      " pushColumn<int32_t> 1, 8\n pushCnst<int32_t> 13\n eq<int32_t>\n condBranch fail\n";
  const TvPtr<RowOpsBase> rules =
      rulesOf("label fail\n discard<int32_t>\n halt\nentry equals\n" + check +
              " equalColumn<int32_t> 1, 8, 2, 8\n halt\nentry autoUpdate\n copyColumn<int32_t> 2, 8, 1, 8\n" +
              check + " halt\n");
  const BaseRow a = number(13), b = number(13);
  EXPECT_EQ(thrown<std::out_of_range>([&] { rules->equals(a, b); }), "stack underflow");
  EXPECT_EQ(a.useCount(), 2);
  EXPECT_EQ(b.useCount(), 2);
  EXPECT_TRUE(rules->equals(number(1), number(1)));
  EXPECT_EQ(a.useCount(), 1);
  EXPECT_EQ(b.useCount(), 1);
  // The half-made result stays in the slot, and what was there comes out.
  const BaseRow stored = number(1);
  BaseRow current = stored;
  EXPECT_EQ(thrown<std::out_of_range>([&] { rules->autoUpdate(current, b); }), "stack underflow");
  EXPECT_TRUE(current.isNull());
  EXPECT_EQ(numberIn(stored), 1);
  EXPECT_EQ(stored.useCount(), 1);
  EXPECT_FALSE(rules->equals(stored, number(2)));
  EXPECT_EQ(b.useCount(), 1);
}

// An entry that is missing is the start of the program, here that of "init", which leaves nothing.
TEST(RowOpsTest, AMissingEntryIsNoErrorUntilItIsUsed) {
  const TvPtr<RowOpsBase> rules = rulesOf("entry less\n pushCnst<bool> T\n halt\n");
  EXPECT_TRUE(rules->less(number(1), number(1)));
  EXPECT_EQ(thrown<std::out_of_range>([&] { rules->hash(number(1)); }), "stack underflow");
  BaseRow current = number(4);
  rules->autoUpdate(current, number(5));
  EXPECT_EQ(numberIn(current), 4);
  EXPECT_EQ(thrown<std::invalid_argument>([] { genTvRtRowOps(1, false, false, "/missing.tva"); }),
            "Failed to process tva content: /missing.tva");
}

}  // namespace
}  // namespace Tavro::TvRT
