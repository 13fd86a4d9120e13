#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>
#include <vector>

#include "../thrown.h"
#include "Tavro/tvMetadata.h"

namespace Tavro {
namespace {

// One column of any type, between bytes that belong to nobody else.
constexpr len_t offset = 9, fixedLength = 25;

BaseRow stored(TavroTypes type, bool isArray, const std::string& text) {
  BaseRow row(fixedLength);
  storeColumnFromString(row, offset, static_cast<unsigned short>(type), 0, isArray, text, fixedLength);
  return row;
}

std::string textOf(const BaseRow& row, TavroTypes type, bool isArray) {
  return columnToString(row, offset, static_cast<unsigned short>(type), isArray, true);
}

TEST(ColumnText, BadTextsAreNamedAndChangeNothing) {
  struct Case {
    TavroTypes type;
    bool isArray;
    std::string text, message;
  };
  std::string tooMany = "[0";
  for (int i = 0; i < 4095; ++i) tooMany += ",0";
  tooMany += "]";
  const std::vector<Case> cases{
      {TypeUint8, false, "abc", "'abc' is no uint8_t"},
      {TypeUint8, false, "+1", "'+1' is no uint8_t"},
      {TypeUint8, false, "--1", "'--1' is no uint8_t"},
      {TypeUint8, false, "0x", "'0x' is no uint8_t"},
      {TypeUint8, false, "999999999999999999999x", "'999999999999999999999x' is no uint8_t"},
      {TypeInt8, false, "128", "'128' does not fit int8_t"},
      {TypeTime, false, "1\n", "'1\\x0a' is no time_t"},
      {TypeDouble, false, "1e309", "'1e309' does not fit double"},
      {TypeDouble, false, "1.5 ", "'1.5 ' is no double"},
      {TypeBool, false, "True", "'True' is no bool"},
      {TypeIpGenAddr, false, "\"\"", "'\"\"' is no IpGenAddr"},
      {TypeString, false, "abc", "'abc' is no string_t"},
      {TypeString, false, "\"", "'\"' is no string_t"},
      {TypeUint8, true, "[", "'[' is no uint8_t[]"},
      {TypeUint8, true, "[1,,2]", "'' is no uint8_t"},
      {TypeUint8, true, "[1,2,]", "'' is no uint8_t"},
      {TypeUint8, true, tooMany, "more than 4095 elements for uint8_t[]"},
      {TypeString, true, R"(["a",])", R"('["a",]' is no string_t[])"},
      {TypeString, true, R"(["a" "b"])", R"('["a" "b"]' is no string_t[])"},
      {TypeString, true, R"(["a\"])", R"('["a\"]' is no string_t[])"},
  };
  for (const Case& each : cases) {
    BaseRow row(fixedLength);
    const BaseRow shared = row;
    const auto store = [&] {
      storeColumnFromString(row, offset, static_cast<unsigned short>(each.type), 0, each.isArray, each.text,
                            fixedLength);
    };
    EXPECT_EQ(thrown<std::invalid_argument>(store), each.message) << each.text;
    EXPECT_EQ(row.rowBuf(), shared.rowBuf()) << "not written to";
  }
}

TEST(ColumnText, LimitsAndForeignCodes) {
  const std::string longest(32767, 'x');
  EXPECT_EQ(textOf(stored(TypeString, false, '"' + longest + '"'), TypeString, false).size(), 32769U);
  EXPECT_THROW(stored(TypeString, false, "\"x" + longest + '"'), TvOutOfRange);
  EXPECT_THROW(stored(TypeString, true, "[\"" + longest + "\"]"), TvOutOfRange);
  EXPECT_THROW(stored(TypeString, true, "[\"" + longest + longest + longest + "\"]"), TvOutOfRange);
  EXPECT_THROW(stored(static_cast<TavroTypes>(12), false, "1"), TvOutOfRange);
  EXPECT_THROW(textOf(BaseRow(fixedLength), static_cast<TavroTypes>(19), false), TvOutOfRange);
}

// Between its outer quotes a string that stands alone is taken as it is, and printed so.
TEST(ColumnText, StringsStandBetweenTheirOuterQuotes) {
  for (const std::string text : {R"("")", R"("a "b" c")", R"("a\"b\\c\")", "\"\n\xC3\""}) {
    const BaseRow row = stored(TypeString, false, text);
    EXPECT_EQ(textOf(row, TypeString, false), text);
    EXPECT_EQ('"' + columnToString(row, offset, TypeString, false, false) + '"', text);
  }
  EXPECT_EQ(textOf(stored(TypeString, true, R"("["a","b"]")"), TypeString, true), R"(["a","b"])");
  EXPECT_EQ(textOf(BaseRow(), TypeInt32, false) + textOf(BaseRow(), TypeString, true), "0[]");
}

TEST(StringHelpers, TrimAndCompare) {
  EXPECT_EQ(TvStrUtils::trim(" \t a b\r\n"), "a b");
  EXPECT_EQ(TvStrUtils::trim(" \n") + TvStrUtils::trim(""), "");
  EXPECT_TRUE(TvStrUtils::iequals("aZ[9", "Az[9"));
  EXPECT_FALSE(TvStrUtils::iequals("[", "{"));
  EXPECT_FALSE(TvStrUtils::iequals("ab", "abc"));
}

}  // namespace
}  // namespace Tavro
