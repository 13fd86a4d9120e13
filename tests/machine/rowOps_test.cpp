#include <array>
#include <cstdio>
#include <fstream>
#include <functional>

#include "Tavro/TvRTIndexRowOps.h"
#include "Tavro/TvRTMiscExprOps.h"
#include "Tavro/tvMetadata.h"
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

BaseRow rowOf(const std::string& type, const std::string& text) {
  BaseRow row(fixedLength);
  storeColumnFromString(row, column, static_cast<unsigned short>(tavroCppTypeNameToType(type)), 0, false,
                        text, fixedLength);
  return row;
}
BaseRow number(int value) { return rowOf("int32_t", std::to_string(value)); }
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

TEST(RowOpsTest, RunsEachEntryOverSlotsOneAndTwo) {
  const TvPtr<RowOpsBase> rules = rulesOf(numberRules, true, false);
  EXPECT_EQ(rules->hash(number(2)), 7U) << "the low 32 bits";
  EXPECT_TRUE(rules->equals(number(2), number(2)));
  EXPECT_FALSE(rules->equals(number(2), number(3)));
  EXPECT_TRUE(rules->less(number(-1), number(0)));
  EXPECT_FALSE(rules->less(number(0), number(-1)));
  BaseRow current = number(40);
  rules->autoUpdate(current, number(2));
  EXPECT_EQ(numberIn(current), 42);
  EXPECT_TRUE(rules->unique());
  EXPECT_FALSE(rules->ordered());
  EXPECT_EQ(rules->index(), 3);
}

TEST(RowOpsTest, KeepsNoRowAndNoOperandBehind) {
  const TvPtr<RowOpsBase> rules = rulesOf(numberRules);
  BaseRow a = number(1), b = number(2);
  // More often than the stack has room for, were anything left on it.
  for (int i = 0; i < 1000; ++i) {
    rules->hash(a);
    rules->equals(a, b);
    rules->less(a, b);
    rules->autoUpdate(a, b);
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

TEST(RowOpsTest, TracesEachOperationWithItsEntry) {
  const TvPtr<RowOpsBase> rules = rulesOf(
      "entry hash\n pushCnst<uint64_t> 1\n halt\nentry equals\n pushCnst<bool> T\n halt\n"
      "entry less\n pushCnst<bool> T\n halt\nentry autoUpdate\n halt\n");
  BaseRow a = number(1);
  const auto lines = traceOf({{"TvRtOp", 8}}, [&] {
    rules->hash(a);
    rules->equals(a, a);
    rules->less(a, a);
    rules->autoUpdate(a, a);
  });
  Lines operations;
  for (const std::string& line : lines)
    if (line.find("RowOp(") != std::string::npos) operations.push_back(line);
  EXPECT_EQ(operations,
            (Lines{"TvRtOp:8 TvRTRowOps hash: HashRowOp( 2 )", "TvRtOp:8 TvRTRowOps equals: EqualsRowOp( 3 )",
                   "TvRtOp:8 TvRTRowOps less: LessRowOp( 4 )",
                   "TvRtOp:8 TvRTRowOps autoUpdate: AutoUpdateRowOp( 5 )"}));
}

// The numbers come from an implementation of the hash in another language.
TEST(RowHashTest, IsTheSameOnEveryTarget) {
  struct Case {
    const char* type;
    const char* text;
    const char* seed;
    unsigned hash;
  };
  const std::vector<Case> cases{
      {"uint32_t", "0", "0", 0x9e3779b9},
      {"uint32_t", "1", "0", 0x9e3779ba},
      {"uint32_t", "0", "1", 0x9e3779f8},
      {"uint16_t", "1", "1", 0x9e3779fb},
      {"uint64_t", "18446744073709551615", "0", 0x9e3779b8},
      {"uint8_t", "255", "0", 0x9e377ab8},
      {"int64_t", "-1", "7", 0x9e377b7e},
      {"int64_t", "4294967296", "0", 0x9e3779b9},
      {"uint32_t", "0", "0x500000001", 0x9e3779f8},
      {"int8_t", "-128", "0", 0x9e377939},
      {"bool", "false", "5", 0x9e377aff},
      {"bool", "true", "5", 0x9e377afe},
      {"IpAddr", "0.0.0.0", "0", 0x9e3779b9},
      {"IpAddr", "10.0.0.1", "0", 0xa83779ba},
      {"IpAddr", "255.255.255.255", "0", 0x9e3779b8},
      {"Ip6Addr", "::", "0", 0x998f98a7},
      {"Ip6Addr", "2001:db8::1", "0", 0xa3b93b0f},
      {"double", "0", "0", 0x9e3779b9},
      {"double", "-0", "0", 0x9e3779b9},
      {"double", "1", "0", 0x03af22df},
      {"float", "0.5", "0", 0x8ae814e9},
      {"double", "nan", "0", 0x587552a8},
      {"double", "-1e+300", "0", 0x617df8d0},
      {"string_t", "\"\"", "0", 0x8c0b0c41},
      {"string_t", "\"a\"", "0", 0x1f6168a7},
      {"string_t", "\"ab\"", "0", 0x456a7b72},
      {"string_t", "\"abc\"", "0", 0x65f3556e},
      {"string_t", "\"abcd\"", "0", 0xce2e891a},
      {"string_t", "\"hello, world\"", "0xdeadbeef", 0xd379723b},
      {"string_t", "\"\xc3\xa9\"", "0", 0x1fad1c89},
      {"IpGenAddr", "", "3", 0x9e377a7a},
      {"IpGenAddr", "10.0.0.1", "3", 0xed7a3045},
      {"IpGenAddr", "2001:db8::1", "3", 0x44fefa39},
      {"IpGenPrefix", "", "3", 0x9e377a7a},
      {"IpGenPrefix", "10.0.0.0/8", "3", 0xdb088268},
      {"IpGenPrefix", "2001:db8::/32", "3", 0x0293b25e},
      {"IpGenPrefix", "0.0.0.0/0", "3", 0xa3ff0bb2},
  };
  for (const Case& test : cases) {
    const std::string type(test.type);
    const TvPtr<RowOpsBase> rules =
        rulesOf("entry hash\n pushCnst<uint64_t> \"" + std::string(test.seed) + "\"\n pushColumn<" + type +
                "> 1, 8\n hash<" + type + ">\n halt\n");
    EXPECT_EQ(rules->hash(rowOf(type, test.text)), test.hash) << type << " " << test.text;
  }
}

// Where the standard library has this very hash.
TEST(RowHashTest, OfBytesIsThatOfTheStandardLibraryOn32Bits) {
  if constexpr (sizeof(std::size_t) == 4) {
    constexpr std::size_t longest = 64;
    std::array<unsigned char, longest + 8> bytes;
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 37 + 201);
    for (std::size_t at = 0; at < 8; ++at)
      for (std::size_t length = 0; length <= longest; ++length)
        ASSERT_EQ(hashBytes(&bytes[at], length), std::_Hash_bytes(&bytes[at], length, 0xc70f6907))
            << length << " bytes at " << at;
  } else {
    GTEST_SKIP() << "the standard library's hash has 64 bits here";
  }
}

}  // namespace
}  // namespace Tavro::TvRT
