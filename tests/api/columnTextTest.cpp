#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>
#include <vector>

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

// Texts of one type, each with the text that its value prints as.
struct TextCases {
  TavroTypes type;
  std::vector<std::pair<std::string, std::string>> texts;
};

void checkRoundTrips(bool isArray, const std::vector<TextCases>& cases) {
  for (const auto& [type, texts] : cases) {
    for (const auto& [text, expected] : texts) {
      SCOPED_TRACE(getTavroTypeName(type) + " " + text);
      const BaseRow row = stored(type, isArray, text);
      const std::string printed = textOf(row, type, isArray);
      EXPECT_EQ(printed, expected);
      const BaseRow again = stored(type, isArray, printed);
      ASSERT_EQ(again.length(), row.length());
      EXPECT_EQ(std::memcmp(again.rowBuf(), row.rowBuf(), row.length()), 0);
    }
  }
}

TEST(ColumnText, ScalarsRoundTrip) {
  checkRoundTrips(
      false,
      {{TypeUint8, {{"255", "255"}}},
       {TypeUint16, {{"0xFFff", "65535"}}},
       {TypeUint32, {{"4294967295", "4294967295"}}},
       {TypeUint64, {{"0xffffffffffffffff", "18446744073709551615"}, {"-0", "0"}}},
       {TypeInt8, {{"-0x80", "-128"}, {"127", "127"}}},
       {TypeInt16, {{"-32768", "-32768"}}},
       {TypeInt32, {{"-2147483648", "-2147483648"}}},
       {TypeInt64,
        {{"-9223372036854775808", "-9223372036854775808"}, {"0X7fffffffffffffff", "9223372036854775807"}}},
       {TypeFloat, {{"0.1", "0.1"}, {"3.4028235e38", "3.4028235e+38"}, {"1e-45", "1e-45"}, {"inf", "inf"}}},
       {TypeDouble, {{"3.0", "3"}, {"1e30", "1e+30"}, {"0.1", "0.1"}, {"-0.0", "-0"}, {"5e-324", "5e-324"}}},
       {TypeDouble,
        {{"1.7976931348623157e308", "1.7976931348623157e+308"}, {"nan", "nan"}, {"-inf", "-inf"}}},
       {TypeBool, {{"true", "true"}, {"false", "false"}}},
       {TypeTime, {{"4294967295", "4294967295"}}},
       {TypePort, {{"65535", "65535"}}},
       {TypeIpAddr, {{"10.0.0.1", "10.0.0.1"}}},
       {TypeIp6Addr, {{"2001:DB8::0", "2001:db8::"}}},
       {TypeIpGenAddr, {{"10.0.0.1", "10.0.0.1"}, {"::1", "::1"}, {"", ""}}},
       {TypeIpGenPrefix, {{"10.0.0.1", "10.0.0.1/32"}, {"::/0", "::/0"}, {"", ""}}},
       {TypeString,
        {{R"("")", R"("")"}, {R"("a, [b] 'c'")", R"("a, [b] 'c'")"}, {"\"\n\xC3\"", "\"\n\xC3\""}}},
       {TypeString, {{R"("a "b" c")", R"("a "b" c")"}, {R"("a\"b\\c\")", R"("a\"b\\c\")"}}}});
}

TEST(ColumnText, ArraysRoundTrip) {
  checkRoundTrips(
      true,
      {{TypeUint8, {{"[]", "[]"}, {"", "[]"}, {"[ ]", "[]"}, {"[ 1, 2 ,0x03 ]", "[1,2,3]"}}},
       {TypeInt64, {{"[-9223372036854775808]", "[-9223372036854775808]"}}},
       {TypeDouble, {{"[nan,0.1,-inf]", "[nan,0.1,-inf]"}}},
       {TypeBool, {{"[true,false]", "[true,false]"}}},
       {TypePort, {{"[80]", "[80]"}}},
       {TypeIpAddr, {{"[1.2.3.4, 5.6.7.8]", "[1.2.3.4,5.6.7.8]"}}},
       {TypeIp6Addr, {{"[::1]", "[::1]"}}},
       {TypeIpGenAddr, {{"[,10.0.0.1,::1]", "[,10.0.0.1,::1]"}, {"[\"\"]", "[\"\"]"}, {"[,]", "[,]"}}},
       {TypeIpGenPrefix, {{"[\"\", ::/0]", "[,::/0]"}, {"[ \"\" ]", "[\"\"]"}}},
       {TypeString, {{"[]", "[]"}, {R"([ "a,b" , "c]","" ])", R"(["a,b","c]",""])"}, {R"([""])", R"([""])"}}},
       {TypeString,
        {{R"(["\"","\\","x\y"])", R"(["\"","\\","x\\y"])"}, {R"("["a","b"]")", R"(["a","b"])"}}}});
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
      {TypeUint8, false, "300", "'300' does not fit uint8_t"},
      {TypeUint8, false, "-1", "'-1' does not fit uint8_t"},
      {TypeUint8, false, "", "'' is no uint8_t"},
      {TypeUint8, false, " 1", "' 1' is no uint8_t"},
      {TypeUint8, false, "+1", "'+1' is no uint8_t"},
      {TypeUint8, false, "--1", "'--1' is no uint8_t"},
      {TypeUint8, false, "0x", "'0x' is no uint8_t"},
      {TypeUint8, false, "999999999999999999999x", "'999999999999999999999x' is no uint8_t"},
      {TypeInt8, false, "128", "'128' does not fit int8_t"},
      {TypeInt8, false, "-129", "'-129' does not fit int8_t"},
      {TypeUint64, false, "18446744073709551616", "'18446744073709551616' does not fit uint64_t"},
      {TypeInt64, false, "-9223372036854775809", "'-9223372036854775809' does not fit int64_t"},
      {TypeTime, false, "1\n", "'1\\x0a' is no time_t"},
      {TypeFloat, false, "1e39", "'1e39' does not fit float"},
      {TypeDouble, false, "1e309", "'1e309' does not fit double"},
      {TypeDouble, false, "1.5 ", "'1.5 ' is no double"},
      {TypeBool, false, "True", "'True' is no bool"},
      {TypeIpAddr, false, "", "'' is no IpAddr"},
      {TypeIp6Addr, false, "1.2.3.4", "'1.2.3.4' is no Ip6Addr"},
      {TypeIpGenAddr, false, "\"\"", "'\"\"' is no IpGenAddr"},
      {TypeIpGenPrefix, false, "1.2.3.4/33", "'1.2.3.4/33' is no IpGenPrefix"},
      {TypeString, false, "abc", "'abc' is no string_t"},
      {TypeString, false, "\"", "'\"' is no string_t"},
      {TypeUint8, true, "1,2", "'1,2' is no uint8_t[]"},
      {TypeUint8, true, "[", "'[' is no uint8_t[]"},
      {TypeUint8, true, "[1,,2]", "'' is no uint8_t"},
      {TypeUint8, true, "[1,2,]", "'' is no uint8_t"},
      {TypeUint8, true, "[1,256]", "'256' does not fit uint8_t"},
      {TypeUint8, true, tooMany, "more than 4095 elements for uint8_t[]"},
      {TypeString, true, "[a]", "'[a]' is no string_t[]"},
      {TypeString, true, R"(["a",])", R"('["a",]' is no string_t[])"},
      {TypeString, true, R"(["a" "b"])", R"('["a" "b"]' is no string_t[])"},
      {TypeString, true, R"(["a\"])", R"('["a\"]' is no string_t[])"},
  };
  for (const Case& each : cases) {
    BaseRow row(fixedLength);
    const BaseRow shared = row;
    try {
      storeColumnFromString(row, offset, static_cast<unsigned short>(each.type), 0, each.isArray, each.text,
                            fixedLength);
      ADD_FAILURE() << each.text;
    } catch (const std::invalid_argument& failure) {
      EXPECT_EQ(failure.what(), each.message);
    }
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

TEST(ColumnText, Printing) {
  const BaseRow row = stored(TypeString, false, R"("a "b"")");
  EXPECT_EQ(columnToString(row, offset, TypeString, false, false), R"(a "b")");
  EXPECT_EQ(textOf(stored(TypeDouble, false, "-nan"), TypeDouble, false), "nan");
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
