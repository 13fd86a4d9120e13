#include "support.h"

namespace Tavro {
namespace {

struct Change {
  const char* what;
  bool keyed, inserts, merges;
  unsigned k, v;
  std::string s;
  Texts told;
};

const std::string longText =
    "z text that is longer than what a key holds in place, and still longer so that no buffer on the stack "
    "takes it";

const std::vector<Change> changes{
    {"insert", false, true, false, 500, 50, longText, {added(500, 50, longText)}},
    {"insert with key", true, true, false, 500, 5000, longText, {added(500, 5000, longText)}},
    {"replace", false, true, false, 3, 50, "", {gone(3, 30), added(3, 50)}},
    {"replace by key", true, true, false, 3, 50, "", {gone(3, 30), added(3, 50)}},
    {"merge", false, true, true, 3, 50, "", {gone(3, 30), added(3, 80)}},
    {"merge by key", true, true, true, 3, 50, "", {gone(3, 30), added(3, 80)}},
    {"delete", false, false, false, 3, 30, "", {gone(3, 30)}},
    {"delete by key", true, false, false, 3, 99, "", {gone(3, 30)}},
};

constexpr unsigned programs = 3;
// What fails: a call of the program with this number, or an allocation.
constexpr unsigned memory = programs;
// The second reader has kept so many changes that it needs memory for one more, which the first does not.
constexpr unsigned kept = 64;

// Makes the change with its step number `failing` failing. False when it has not so many steps.
bool changesNothing(const Change& change, unsigned rows, unsigned place, unsigned failing) {
  Fixture fixture(change.keyed);
  fixture.addColumns({"v"});
  fixture.addColumns({"v", "s"});
  const std::vector<TvPtr<Rules>> rules{fixture.addRules(true, false, valueColumn),
                                        fixture.addRules(false, true), fixture.addRules(true, true)};
  if (change.merges) fixture.table.autoUpdateIs(rules[place % programs]);
  Texts toldSecond;
  const auto second = makeReader(*fixture.database, fixture.table, toldSecond);
  for (unsigned k = 1; k <= rows; ++k) {
    if (k == rows - kept + 1) second->activate(true);
    fixture.insert(k, 10 * k);
  }
  fixture.news();
  second->activate(false);
  const Texts before = fixture.contents();
  const TvRowIterator cursor = fixture.writer->find(fixture.row(3, 0), 4);
  const BaseRow stored = *cursor;
  const long owners = stored.useCount();
  BaseRow row = fixture.row(change.k, change.v, change.s);
  const auto apply = [&] { change.inserts ? fixture.writer->rowIs(row) : fixture.writer->rowDel(row); };
  if (place != memory) rules[place]->failAt = failing;
  const bool failed = allocation::attempt(place == memory ? failing : 0, apply).hasThrown;
  if (place != memory) rules[place]->failAt = 0;
  if (failed) {
    EXPECT_EQ(fixture.contents(), before);
    EXPECT_EQ(fixture.table.size(), rows);
    EXPECT_EQ(fixture.news(), Texts{});
    EXPECT_EQ(toldSecond.size(), kept);
    EXPECT_EQ(stored.useCount(), owners);
    EXPECT_EQ(row.useCount(), 1);
    EXPECT_EQ(textOf(fixture.table, *cursor), text(3, 30));
    if (place != memory) {
      rules[place]->failAt = 1;
      EXPECT_THROW((void)fixture.writer->find(row, static_cast<unsigned char>(3 + place)), std::domain_error);
    }
    // It can be made when nothing fails.
    apply();
  }
  EXPECT_EQ(fixture.news(), change.told);
  EXPECT_EQ(toldSecond.size(), kept + change.told.size());
  EXPECT_NE(fixture.contents(), before);
  return failed;
}

// Each call of a program fails in turn, and each allocation: table, indexes, stored rows and what readers
// hear stay as they were. So many rows that a further one splits the last leaf of a tree, or a block of
// entries.
TEST(Failure, AChangeThatFailsChangesNothing) {
  for (const Change& change : changes)
    for (const unsigned rows : {127U, 256U})
      for (unsigned place = change.inserts ? 0 : memory; place <= memory; ++place) {
        SCOPED_TRACE(std::string(change.what) + ", failing " + std::to_string(place));
        unsigned failing = 1;
        while (changesNothing(change, rows, place, failing) && !HasFailure()) ++failing;
        EXPECT_GT(failing, 1U) << "nothing has failed";
      }
}

// In a table with nothing but an order of arrival, whose next row needs memory for its place, and for what
// finds it by its values.
TEST(Failure, AHandleThatIsGivenAwayIsTakenByWhatSucceeds) {
  constexpr unsigned rows = 240;
  unsigned failing = 1;
  for (bool failed = true; failed; ++failing) {
    Fixture fixture(false);
    for (unsigned k = 1; k <= rows; ++k) fixture.insert(k, 10 * k);
    ASSERT_NE(fixture.writer->find(fixture.row(3, 30), 0), fixture.writer->end(0));
    fixture.news();
    BaseRow row = fixture.row(500, 50, longText);
    const auto give = [&] { fixture.writer->rowIs(static_cast<BaseRow&&>(row)); };
    failed = allocation::attempt(failing, give).hasThrown;
    ASSERT_EQ(row.isNull(), !failed);
    ASSERT_EQ(fixture.table.size(), failed ? rows : rows + 1);
    ASSERT_EQ(fixture.news(), failed ? Texts{} : Texts{added(500, 50, longText)});
    if (failed) {
      ASSERT_EQ(textOf(fixture.table, row), text(500, 50, longText));
      ASSERT_EQ(row.useCount(), 1);
    }
    ASSERT_EQ(fixture.writer->find(fixture.row(500, 50, longText), 0) == fixture.writer->end(0), failed);
  }
  EXPECT_GT(failing, 3U) << "place and lookup take memory";
}

TEST(Failure, RowsFollowAFirstThatFailed) {
  unsigned failing = 1;
  for (bool failed = true; failed; ++failing) {
    Fixture fixture(false);
    // From now on the index notes where rows are.
    (void)fixture.writer->find(fixture.row(1, 10), 0);
    failed = allocation::attempt(failing, [&] { fixture.insert(1, 10); }).hasThrown;
    const unsigned rows = 400;
    for (unsigned k = failed ? 1 : 2; k <= rows; ++k) fixture.insert(k, 10 * k);
    EXPECT_EQ(walk(fixture.table, *fixture.writer, 0).size(), rows);
    for (unsigned k = 1; k <= rows; ++k)
      EXPECT_NE(fixture.writer->find(fixture.row(k, 10 * k), 0), fixture.writer->end(0)) << k;
  }
  EXPECT_GT(failing, 3U) << "place and lookup take memory";
}

}  // namespace
}  // namespace Tavro
