#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <random>

#include "support.h"

namespace Tavro {
namespace {

struct Order {
  const char* name;
  TavroTypes type;
  bool isArray;
  // Text forms, ascending.
  std::vector<std::string> values;

  friend void PrintTo(const Order& order, std::ostream* out) { *out << order.name; }
};

const std::string zero(1, '\0');
const std::string sixteen = "0123456789abcdef";

const std::vector<Order> orders{
    {"uint8", TypeUint8, false, {"0", "1", "127", "128", "254", "255"}},
    {"uint16", TypeUint16, false, {"0", "1", "255", "256", "32767", "32768", "65535"}},
    {"uint32", TypeUint32, false, {"0", "255", "256", "65536", "2147483647", "2147483648", "4294967295"}},
    {"uint64", TypeUint64, false, {"0", "256", "4294967296", "9223372036854775808", "18446744073709551615"}},
    {"int8", TypeInt8, false, {"-128", "-127", "-1", "0", "1", "127"}},
    {"int16", TypeInt16, false, {"-32768", "-256", "-255", "-1", "0", "1", "256", "32767"}},
    {"int32", TypeInt32, false, {"-2147483648", "-65536", "-1", "0", "255", "256", "2147483647"}},
    {"int64",
     TypeInt64,
     false,
     {"-9223372036854775808", "-4294967296", "-1", "0", "1", "9223372036854775807"}},
    {"float",
     TypeFloat,
     false,
     {"-inf", "-1e+30", "-1", "-1e-40", "0", "1e-40", "0.5", "1", "1e+30", "inf", "nan"}},
    {"double",
     TypeDouble,
     false,
     {"-inf", "-1e+300", "-2", "-1", "-5e-324", "0", "5e-324", "1", "inf", "nan"}},
    {"bool", TypeBool, false, {"false", "true"}},
    {"time", TypeTime, false, {"0", "1", "4294967295"}},
    {"port", TypePort, false, {"0", "255", "256", "65535"}},
    {"IpAddr",
     TypeIpAddr,
     false,
     {"0.0.0.0", "9.255.255.255", "10.0.0.0", "127.0.0.1", "128.0.0.0", "255.0.0.0"}},
    {"Ip6Addr", TypeIp6Addr, false, {"::", "::1", "::ffff", "1::", "8000::", "ffff::"}},
    {"string",
     TypeString,
     false,
     {"\"\"",
      "\"" + zero + "\"",
      "\"" + zero + zero + "\"",
      "\"" + zero + "a\"",
      "\"\x01\"",
      "\"" + sixteen + "\"",
      "\"" + sixteen + zero + "\"",
      "\"" + sixteen + "b\"",
      "\"" + sixteen + "bb\"",
      "\"" + sixteen + "c\"",
      "\"a\"",
      "\"a" + zero + "\"",
      "\"a" + zero + "b\"",
      "\"a\x01\"",
      "\"aa\"",
      "\"b\"",
      "\"\x7f\"",
      "\"\x80\"",
      "\"\xff\"",
      "\"\xff\xff\""}},
    {"IpGenAddr",
     TypeIpGenAddr,
     false,
     {"", "0.0.0.0", "10.0.0.1", "255.255.255.255", "::", "::1", "ffff::"}},
    {"IpGenPrefix",
     TypeIpGenPrefix,
     false,
     {"", "0.0.0.0/0", "10.0.0.0/8", "10.0.0.0/9", "10.0.0.1/8", "255.0.0.0/8", "::/0", "::/128", "::1/128",
      "1::/16"}},
    {"arrays", TypeInt16, true, {"[]", "[-2]", "[-2,-3]", "[-1]", "[0]", "[0,0]", "[0,1]", "[1]", "[256]"}},
    {"string arrays",
     TypeString,
     true,
     {"[]", "[\"\"]", "[\"\",\"\"]", "[\"\",\"a\"]", "[\"a\"]", "[\"a\",\"b\"]", "[\"aa\"]", "[\"b\"]"}},
    {"prefix arrays",
     TypeIpGenPrefix,
     true,
     {"[]", "[10.0.0.0/8]", "[10.0.0.0/8,10.0.0.0/7]", "[10.0.0.0/9]", "[::/0]"}},
};

class KeyOrder : public testing::TestWithParam<Order> {};

// As a key, and as a further index in which every row stands twice.
TEST_P(KeyOrder, WalksFindsAndBounds) {
  const Order& order = GetParam();
  const std::vector<std::string>& sorted = order.values;
  std::vector<std::string> shuffled = sorted;
  std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(7));

  Database database;
  Table& keyed = database.createTable("keyed", {{"k", order.type, order.isArray, true}});
  Table& plain = database.createTable("plain", {{"k", order.type, order.isArray}, {"n", TypeUint8}});
  plain.addIndex({"k"});
  const auto keyedWriter = makeWriter(database, "keyed");
  const auto plainWriter = makeWriter(database, "plain");
  for (const std::string& value : shuffled) {
    BaseRow row = makeRow(keyed, {value});
    keyedWriter->rowIs(row);
    for (const char* n : {"2", "1"}) {
      BaseRow twin = makeRow(plain, {value, n});
      plainWriter->rowIs(twin);
    }
  }
  std::vector<std::string> expectedRows, expectedTwins;
  for (const std::string& value : sorted) {
    const BaseRow row = makeRow(keyed, {value});
    expectedRows.push_back(textOf(keyed, row));
    expectedTwins.push_back(expectedRows.back() + "|2");
    expectedTwins.push_back(expectedRows.back() + "|1");
    EXPECT_EQ(textOf(keyed, *keyedWriter->find(row, 0)), expectedRows.back());
    EXPECT_EQ(keyedWriter->lower_bound(row, 0), keyedWriter->find(row, 0));
    EXPECT_EQ(textOf(plain, *plainWriter->find(row, 1)), expectedRows.back() + "|2");
    EXPECT_EQ(plainWriter->lower_bound(row, 1), plainWriter->find(row, 1));
    EXPECT_EQ(textOf(plain, *plainWriter->find(makeRow(plain, {value, "1"}), 0)), expectedRows.back() + "|1");
  }
  EXPECT_EQ(walk(keyed, *keyedWriter, 0), expectedRows);
  EXPECT_EQ(walk(plain, *plainWriter, 1), expectedTwins);

  // Without the row itself, a bound yields its successor.
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    BaseRow row = makeRow(keyed, {sorted[i]});
    keyedWriter->rowDel(row);
    EXPECT_EQ(keyedWriter->find(row, 0), keyedWriter->end(0));
    const std::string successor = i + 1 == sorted.size() ? "null" : expectedRows[i + 1];
    EXPECT_EQ(textOf(keyed, *keyedWriter->lower_bound(row, 0)), successor);
    keyedWriter->rowIs(row);
  }
}

INSTANTIATE_TEST_SUITE_P(Types, KeyOrder, testing::ValuesIn(orders), [](const auto& test) {
  std::string name = test.param.name;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
});

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

TEST(KeyOrder, SeveralColumnsOrderInTurnAsDeclaredOrNamed) {
  Database database;
  Table& table = database.createTable(
      "t", {{"a", TypeString, false, true}, {"x", TypeUint8}, {"b", TypeInt32, false, true}});
  EXPECT_EQ(table.addIndex({"x", "a"}), 1U);
  const auto writer = makeWriter(database, "t");
  for (const auto& cells : std::vector<std::vector<std::string>>{
           {"\"b\"", "1", "-5"}, {"\"a\"", "2", "7"}, {"\"a\"", "1", "-7"}, {"\"ab\"", "2", "-9"}}) {
    BaseRow row = makeRow(table, cells);
    writer->rowIs(row);
  }
  using Rows = std::vector<std::string>;
  EXPECT_EQ(walk(table, *writer, 0), (Rows{"\"a\"|1|-7", "\"a\"|2|7", "\"ab\"|2|-9", "\"b\"|1|-5"}));
  EXPECT_EQ(walk(table, *writer, 1), (Rows{"\"a\"|1|-7", "\"b\"|1|-5", "\"a\"|2|7", "\"ab\"|2|-9"}));
}

}  // namespace
}  // namespace Tavro
