#include <algorithm>

#include "support.h"

namespace Tavro {
namespace {

// Every allocation of a change fails in turn: table, indexes and what readers are told stay as they were.
TEST(Failure, AChangeThatRunsOutOfMemoryChangesNothing) {
  const std::string longText =
      "\"z text that is longer than what a key holds in place, and still longer "
      "so that no buffer on the stack takes it\"";
  constexpr unsigned kept = 15;
  struct Change {
    const char* what;
    bool keyed;
    bool isInsertion;
    std::vector<std::string> cells;
  };
  const std::vector<Change> changes{
      {"insert", true, true, {longText, "1"}},
      {"replace", true, true, {"\"k170\"", "1"}},
      {"delete", true, false, {"\"k170\"", "0"}},
      {"insert without key", false, true, {longText, "1"}},
      {"delete without key", false, false, {"\"k170\"", "0"}},
  };
  for (const Change& change : changes) {
    SCOPED_TRACE(change.what);
    for (std::size_t failing = 1;; ++failing) {
      Database database;
      Table& table = database.createTable("t", {{"k", TypeString, false, change.keyed}, {"v", TypeUint8}});
      table.addIndex({"v"});
      table.addIndex({"v", "k"});
      const auto writer = makeWriter(database, "t");
      std::vector<std::string> told;
      const auto makeReader = [&] {
        auto reader = std::make_unique<TvTableInterface>(
            "r", "", TvTableInterface::readMode, nullptr,
            [&](const BaseRow& row) { told.push_back("+" + textOf(table, row)); },
            [&](const BaseRow& row) { told.push_back("-" + textOf(table, row)); }, nullptr);
        database.bindInterface(*reader, "t");
        reader->clientReadyIs(true);
        return reader;
      };
      const auto first = makeReader();
      const auto second = makeReader();
      // The last leaf of each tree is full, so that the change has to split it, and the second reader has
      // kept so many changes that it needs memory for one more, which the first does not.
      for (unsigned i = 0; i < 127; ++i) {
        if (i == 127 - kept) second->activate(true);
        BaseRow row = makeRow(table, {"\"k" + std::to_string(100 + i) + "\"", "0"});
        writer->rowIs(row);
      }
      first->activate(false);
      second->activate(false);
      BaseRow row = makeRow(table, change.cells);
      const auto before = walk(table, *writer, 0);
      allocation::failAt(failing);
      bool failed = false;
      try {
        if (change.isInsertion)
          writer->rowIs(row);
        else
          writer->rowDel(row);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      allocation::failAt(0);
      const auto after = walk(table, *writer, 0);
      for (unsigned char index = 1; index <= 2; ++index) {
        std::vector<std::string> rows = walk(table, *writer, index);
        EXPECT_TRUE(std::is_permutation(rows.begin(), rows.end(), after.begin(), after.end()));
      }
      EXPECT_EQ(table.size(), after.size());
      database.scheduler().runUntilIdle();
      if (failed) {
        ASSERT_EQ(after, before) << "allocation " << failing;
        ASSERT_EQ(told.size(), kept) << "allocation " << failing;
      } else {
        EXPECT_NE(after, before);
        EXPECT_GT(told.size(), kept);
        if (change.isInsertion) {
          EXPECT_GT(failing, 3U);
        }
        break;
      }
      // It can be made once there is memory.
      if (change.isInsertion)
        writer->rowIs(row);
      else
        writer->rowDel(row);
      database.scheduler().runUntilIdle();
      EXPECT_NE(walk(table, *writer, 0), before);
      EXPECT_GT(told.size(), kept);
    }
  }
}

}  // namespace
}  // namespace Tavro
