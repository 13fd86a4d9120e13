#include <random>

#include "support.h"

namespace Tavro {
namespace {

// Rules that contradict themselves give an order without sense, and nothing worse.
TEST(ProgrammedIndex, SurvivesRulesWithoutReason) {
  struct Dice : Rules {
    using Rules::Rules;
    unsigned hash(const BaseRow&) override { return static_cast<unsigned>(random() % 3); }
    bool equals(const BaseRow&, const BaseRow&) override { return random() % 2 == 0; }
    bool less(const BaseRow&, const BaseRow&) override { return random() % 2 == 0; }
    std::mt19937 random{5};
  };
  Fixture fixture(false);
  fixture.table.addIndex(std::make_shared<Dice>(1U, true, true));
  fixture.table.addIndex(std::make_shared<Dice>(2U, false, false));
  unsigned inserted = 0;
  for (unsigned i = 0; i < 3000; ++i) {
    fixture.insert(i, 0);
    if (i % 3 == 0) fixture.writer->rowDel(fixture.row(i / 2, 0));
  }
  for (const std::string& change : fixture.news()) inserted += change.front() == '+' ? 1 : 0;
  EXPECT_EQ(inserted, 3000U);
  for (unsigned i = 0; i <= 2; ++i) EXPECT_EQ(fixture.walkOf(i).size(), fixture.table.size());
}

TEST(ProgrammedIndex, IsNotAddedWhenItsProgramFailsOrAKeyStandsTwice) {
  Fixture fixture(false);
  fixture.insert(1, 10);
  fixture.insert(2, 20);
  fixture.insert(1, 30);
  const auto refusal = [&](unsigned number, bool ordered, bool unique) {
    return thrown<std::invalid_argument>(
        [&] { fixture.table.addIndex(std::make_shared<Rules>(number, ordered, unique)); });
  };
  for (const bool ordered : {false, true}) {
    const auto failing = std::make_shared<Rules>(1U, ordered, false);
    failing->failAt = 2;
    EXPECT_THROW(fixture.table.addIndex(failing), std::domain_error);
    EXPECT_EQ(refusal(1, ordered, true), "table t: index 1 admits one row per key, but two rows have one");
  }
  EXPECT_EQ(refusal(2, true, false), "table t: rules of index 2 given to index 1");
  EXPECT_EQ(thrown<std::invalid_argument>([&] { fixture.table.addIndex(TvPtr<RowOpsBase>()); }),
            "table t: an index needs rules");
  EXPECT_EQ(thrown<std::out_of_range>([&] { (void)fixture.writer->begin(1); }), "table t has no index 1");
  EXPECT_EQ(fixture.walkOf(0), (Texts{text(1, 10), text(2, 20), text(1, 30)}));
  fixture.addRules(true, false);
  EXPECT_EQ(fixture.walkOf(1), (Texts{text(1, 10), text(1, 30), text(2, 20)}));
}

TEST(ProgrammedIndex, RefusesTheKeysOfTwoRowsAndMergersThatLeaveNoRow) {
  const auto keyBecomes = [](unsigned k) {
    return [k](BaseRow& current, const BaseRow&) { current.setColumn(keyColumn, k, fixedLength); };
  };
  const auto becomes = [](const BaseRow& row) {
    return [=](BaseRow& current, const BaseRow&) { current = row; };
  };
  struct Case {
    Rules::Merge merge;
    unsigned v;
    const char* message;
  };
  const std::vector<Case> cases{
      {nullptr, 20, "the row has the key of one row, but in index 1 that of another"},
      {addValues, 20, "the row has the key of one row, but in index 1 that of another"},
      // Both keys are those of one row, until the sum becomes the key of another.
      {addValues, 10, "the row has the key of one row, but in index 1 that of another"},
      {keyBecomes(2), 99, "the row has the key of one row, but in index 0 that of another"},
      {becomes(BaseRow()), 99, "autoUpdate has left no row"},
      {becomes(BaseRow(12)), 99, "row of 12 bytes does not fit, fixed length is 20"},
  };
  Fixture fixture(true);
  const TvPtr<Rules> rules = fixture.addRules(true, true, valueColumn);
  fixture.insert(1, 10);
  fixture.insert(2, 20);
  fixture.news();
  const Texts before = fixture.contents();
  for (const Case& each : cases) {
    rules->merge = each.merge;
    fixture.table.autoUpdateIs(each.merge ? rules : nullptr);
    EXPECT_EQ(thrown<TvOutOfRange>([&] { fixture.insert(1, each.v); }),
              std::string("table t: ") + each.message);
    EXPECT_EQ(fixture.contents(), before) << each.message;
    EXPECT_EQ(fixture.news(), Texts{}) << each.message;
  }
  // A key that is free it may take.
  rules->merge = keyBecomes(5);
  fixture.insert(1, 99);
  EXPECT_EQ(fixture.news(), (Texts{gone(1, 10), added(5, 10)}));
  EXPECT_EQ(fixture.contents(), (Texts{text(2, 20), text(5, 10), text(5, 10), text(2, 20)}));
}

TEST(ProgrammedIndex, MergersLeaveStoredRowsAsTheyAre) {
  for (const bool keyed : {true, false}) {
    SCOPED_TRACE(keyed);
    Fixture fixture(keyed);
    const TvPtr<Rules> rules = fixture.addRules(false, !keyed);
    fixture.table.autoUpdateIs(rules);
    fixture.insert(1, 10);
    fixture.news();
    const BaseRow stored = *fixture.writer->begin(0);
    BaseRow incoming = fixture.row(1, 5);
    fixture.writer->rowIs(incoming);
    EXPECT_EQ(fixture.news(), (Texts{gone(1, 10), added(1, 15)}));
    EXPECT_EQ(textOf(fixture.table, stored), text(1, 10));
    EXPECT_EQ(stored.useCount(), 1);
    EXPECT_EQ(incoming.useCount(), 1);
    // A program that changes nothing: the same buffer goes and comes.
    rules->merge = [](BaseRow&, const BaseRow&) {};
    const BaseRow merged = *fixture.writer->begin(0);
    fixture.insert(1, 7);
    EXPECT_EQ(fixture.news(), (Texts{gone(1, 15), added(1, 15)}));
    EXPECT_EQ((*fixture.writer->begin(1)).rowBuf(), merged.rowBuf());
    // A handle here, and one in each index.
    EXPECT_EQ(merged.useCount(), 3);
  }
}

// A program reads columns unchecked, so what cannot be read does not come before it.
TEST(ProgrammedIndex, ShowsItsProgramOnlyRowsThatFit) {
  Fixture fixture(false);
  const TvPtr<Rules> ordered = fixture.addRules(true, false);
  const TvPtr<Rules> hashed = fixture.addRules(false, true);
  BaseRow shortRow(12);
  BaseRow astray = fixture.row(1, 1);
  storeBytes(astray.rwRowBuf() + 16, 0x80100010U);
  for (unsigned char i = 1; i <= 2; ++i) {
    EXPECT_THROW((void)fixture.writer->find(BaseRow(), i), TvNullRow);
    EXPECT_EQ(thrown<TvOutOfRange>([&] { (void)fixture.writer->find(shortRow, i); }),
              "table t: row of 12 bytes does not fit, fixed length is 20");
    EXPECT_EQ(thrown<TvOutOfRange>([&] { (void)fixture.writer->find(astray, i); }),
              "table t: column 's' reaches beyond its row of 20 bytes");
  }
  EXPECT_THROW((void)fixture.writer->lower_bound(shortRow, 1), TvOutOfRange);
  EXPECT_THROW(fixture.writer->rowIs(astray), TvOutOfRange);
  EXPECT_EQ(thrown<std::runtime_error>([&] { (void)fixture.writer->lower_bound(shortRow, 2); }),
            "table t: index 2 has no order");
  EXPECT_EQ(ordered->calls + hashed->calls, 0U);
}

TEST(ProgrammedIndex, MovesCursorsFromTheRowThatItReplaces) {
  for (const bool ordered : {false, true}) {
    Fixture fixture(false);
    fixture.addRules(ordered, true);
    for (unsigned k = 1; k <= 3; ++k) fixture.insert(k, 0);
    TvRowIterator cursor = fixture.writer->find(fixture.row(2, 0), 1);
    fixture.insert(2, 7);
    EXPECT_EQ(textOf(fixture.table, *cursor++), text(3, 0));
    // In order of arrival the row that replaced it is the last.
    EXPECT_EQ(textOf(fixture.table, *cursor), ordered ? "null" : text(2, 7));
  }
}

TEST(ProgrammedIndex, TakesFewComparisons) {
  Fixture fixture(false);
  const TvPtr<Rules> rules = fixture.addRules(true, false);
  for (unsigned k = 0; k < 1000; ++k) fixture.insert(k / 2, k);
  EXPECT_EQ(rules->calls, 999U) << "one for a row that comes in order";
  for (unsigned k = 0; k < 600; ++k) {
    rules->calls = 0;
    (void)fixture.writer->find(fixture.row(k, 0), 1);
    // The logarithm of 1000, rounded up among the blocks and within one; one more tells an equal row.
    ASSERT_LE(rules->calls, 12U);
  }
}

}  // namespace
}  // namespace Tavro
