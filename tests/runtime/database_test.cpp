#include "support.h"

namespace Tavro {
namespace {

using Columns = std::vector<ColumnDefinition>;

TEST(Database, FindsTablesByPath) {
  Database database;
  Table& plain = database.createTable("demo::in", {{"k", TypeUint8}});
  Table& dotted = database.createTable("demo::in.x", {{"k", TypeUint8}});
  EXPECT_EQ(database.tableAt("demo::in"), &plain);
  EXPECT_EQ(database.tableAt("demo::in.alias"), &plain);
  EXPECT_EQ(database.tableAt("demo::in.x"), &dotted);
  EXPECT_EQ(database.tableAt("demo::in.x.alias"), &dotted);
  EXPECT_EQ(database.tableAt("demo"), nullptr);
  EXPECT_NE(plain.rowType(), dotted.rowType());
  EXPECT_EQ(dotted.newRow().rowType(), dotted.rowType());
  TvTableInterface interface("i", "", TvTableInterface::readMode, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(thrown<std::invalid_argument>([&] { database.bindInterface(interface, "demo.in"); }),
            "no table at path 'demo.in'");
}

TEST(Database, RefusesTablesAndIndexesThatCannotBe) {
  Database database;
  Table& table = database.createTable("t", {{"k", TypeUint8}});
  const auto refusal = [&](const std::string& name, const Columns& columns) {
    return thrown<std::invalid_argument>([&] { database.createTable(name, columns); });
  };
  EXPECT_EQ(refusal("t", {{"k", TypeUint8}}), "table t exists already");
  EXPECT_EQ(refusal("u", {}), "table u has no columns");
  EXPECT_EQ(refusal("u", {{"k", TypeUint8}, {"k", TypeUint8}}), "table u has two columns 'k'");
  Columns many;
  for (unsigned i = 0; i < 4096; ++i) many.push_back({"c" + std::to_string(i), TypeIp6Addr});
  EXPECT_EQ(refusal("u", many), "table u: column 'c4095' lies beyond the longest row of 65535 bytes");
  EXPECT_THROW(database.createTable("u", {{"k", static_cast<TavroTypes>(12)}}), TvOutOfRange);
  EXPECT_EQ(database.findTable("u"), nullptr);

  EXPECT_EQ(thrown<std::invalid_argument>([&] { table.addIndex({"k", "x"}); }), "table t has no column 'x'");
  EXPECT_EQ(thrown<std::invalid_argument>([&] { table.addIndex(std::vector<std::string>{}); }),
            "table t: an index needs columns");
  const auto writer = makeWriter(database, "t");
  EXPECT_EQ(thrown<std::out_of_range>([&] { (void)writer->end(1); }), "table t has no index 1");
  EXPECT_EQ(thrown<std::runtime_error>([&] { (void)writer->lower_bound(table.newRow(), 0); }),
            "table t: index 0 has no order");
  for (unsigned i = 1; i < 256; ++i) EXPECT_EQ(table.addIndex({"k"}), i);
  EXPECT_EQ(thrown<std::length_error>([&] { table.addIndex({"k"}); }),
            "table t has no room for a further index");
}

TEST(TavroDB, IsOneForTheProcessAndDescribesItsTables) {
  const TvPtr<TavroDB> db = getTavroDb();
  EXPECT_EQ(db, getTavroDb());
  const Table& table = db->database().createTable("class", {{"k", TypeUint8}});
  EXPECT_EQ(db->tableTypeId("class", false), table.rowType());
  EXPECT_EQ(db->tableTypeId("none", false), 65535U);
  const BaseRow metadata = TavroDB::tvClass("class");
  EXPECT_EQ(loadBytes<std::uint32_t>(metadata.rowBuf() + tv_classIdOffset), table.rowType());
  EXPECT_TRUE(TavroDB::tvClass("none").isNull());
  db->database().clear();
  EXPECT_TRUE(TavroDB::tvClass("class").isNull());
}

}  // namespace
}  // namespace Tavro
