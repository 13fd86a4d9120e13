#include <algorithm>
#include <ostream>
#include <random>
#include <stdexcept>

#include "support.h"

namespace Tavro {
namespace {

constexpr len_t keyColumn = 8;
constexpr len_t valueColumn = 12;
constexpr len_t fixedLength = 20;
// So few that keys of different rows have one hash.
constexpr unsigned hashes = 8;

unsigned columnOf(const BaseRow& row, len_t column) {
  std::uint32_t value = 0;
  row.getColumn(column, value);
  return value;
}

// Compares one column. Can be made to fail at its call number `failAt`, 1 being the next.
class Rules : public RowOpsBase {
 public:
  Rules(unsigned index, bool isOrdered, bool isUnique, len_t column = keyColumn)
      : index_(static_cast<unsigned short>(index)), ordered_(isOrdered), unique_(isUnique), column_(column) {}

  unsigned hash(const BaseRow& row) override {
    count();
    return columnOf(row, column_) % hashes;
  }
  bool equals(const BaseRow& a, const BaseRow& b) override {
    count();
    EXPECT_EQ(columnOf(a, column_) % hashes, columnOf(b, column_) % hashes);
    return columnOf(a, column_) == columnOf(b, column_);
  }
  bool less(const BaseRow& a, const BaseRow& b) override {
    count();
    return columnOf(a, column_) < columnOf(b, column_);
  }
  // Writes half of its result before it can fail.
  void autoUpdate(BaseRow& current, const BaseRow& incoming) override {
    if (!writes) return;
    current.setColumn(valueColumn, columnOf(current, valueColumn) + columnOf(incoming, valueColumn),
                      fixedLength);
    count();
    if (changesKey) current.setColumn(keyColumn, columnOf(incoming, valueColumn), fixedLength);
  }
  bool unique() override { return unique_; }
  bool ordered() override { return ordered_; }
  unsigned short index() override { return index_; }
  long long getTotalInstructionsExecuted() override { return 0; }

  bool writes = true;
  bool changesKey = false;
  unsigned calls = 0;
  unsigned failAt = 0;

 private:
  void count() {
    ++calls;
    if (failAt != 0 && --failAt == 0) throw std::domain_error("rules");
  }

  unsigned short index_;
  bool ordered_;
  bool unique_;
  len_t column_;
};

// A table of k, v and a text, and a reader that hears of all changes.
struct Fixture {
  explicit Fixture(bool keyed)
      : table(database.createTable("t",
                                   {{"k", TypeUint32, false, keyed}, {"v", TypeUint32}, {"s", TypeString}})),
        writer(makeWriter(database, "t")),
        reader(
            "r", "", TvTableInterface::readMode, nullptr,
            [this](const BaseRow& row) { told.push_back('+' + textOf(table, row)); },
            [this](const BaseRow& row) { told.push_back('-' + textOf(table, row)); }, nullptr) {
    database.bindInterface(reader, "t");
    reader.clientReadyIs(true);
    reader.activate(false);
  }

  TvPtr<Rules> addRules(bool ordered, bool unique, len_t column = keyColumn) {
    auto rules = std::make_shared<Rules>(++indexes, ordered, unique, column);
    table.addIndex(rules);
    return rules;
  }
  BaseRow row(unsigned k, unsigned v) const {
    return makeRow(table, {std::to_string(k), std::to_string(v), "\"\""});
  }
  void insert(unsigned k, unsigned v) {
    BaseRow inserted = row(k, v);
    writer->rowIs(inserted);
  }
  // The walks of all indexes, one behind the other.
  std::vector<std::string> contents() const {
    std::vector<std::string> rows;
    for (unsigned i = 0; i <= indexes; ++i)
      for (const std::string& text : walk(table, *writer, static_cast<unsigned char>(i)))
        rows.push_back(text);
    return rows;
  }
  std::vector<std::string> news() {
    database.scheduler().runUntilIdle();
    return std::exchange(told, {});
  }

  Database database;
  Table& table;
  unsigned indexes = 0;
  std::unique_ptr<TvTableInterface> writer;
  std::vector<std::string> told;
  TvTableInterface reader;
};

struct Kind {
  const char* name;
  bool ordered;
  bool unique;
  bool merges;

  friend void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }
};

class ProgrammedIndexModel : public testing::TestWithParam<Kind> {};

TEST_P(ProgrammedIndexModel, DoesWhatAVectorDoes) {
  const Kind& kind = GetParam();
  Fixture fixture(false);
  const TvPtr<Rules> rules = fixture.addRules(kind.ordered, kind.unique);
  if (kind.merges) fixture.table.autoUpdateIs(rules);
  struct Row {
    unsigned k, v;
    std::string text() const { return std::to_string(k) + '|' + std::to_string(v) + "|\"\""; }
  };
  std::vector<Row> model;  // in order of arrival
  const auto ranked = [&] {
    std::vector<Row> rows = model;
    if (kind.ordered)
      std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.k < b.k; });
    return rows;
  };
  const auto textsOf = [](const std::vector<Row>& rows) {
    std::vector<std::string> texts;
    for (const Row& row : rows) texts.push_back(row.text());
    return texts;
  };

  std::mt19937 generator(11);
  const auto random = [&](unsigned below) { return static_cast<unsigned>(generator() % below); };
  constexpr unsigned steps = 6000;
  constexpr unsigned phase = 1500;
  for (unsigned step = 0; step < steps; ++step) {
    // Grows to many blocks of entries and shrinks to few, in turn; in the second half keys come in order.
    const bool growing = step / phase % 2 == 0;
    const bool inserting = model.empty() || random(100) < (growing ? 90 : 10);
    const unsigned k = kind.unique ? random(900) : step < steps / 2 ? random(300) : step / 4;
    std::vector<std::string> expected;
    if (inserting) {
      Row added{k, random(1000)};
      const unsigned v = added.v;
      const auto met = std::find_if(model.begin(), model.end(), [&](const Row& row) { return row.k == k; });
      if (kind.unique && met != model.end()) {
        expected.push_back('-' + met->text());
        if (kind.merges) added.v += met->v;
        model.erase(met);
      }
      model.push_back(added);
      expected.push_back('+' + added.text());
      fixture.insert(k, v);
    } else {
      const auto gone = model.begin() + random(static_cast<unsigned>(model.size()));
      const Row row = *gone;
      // Equal rows: the first goes.
      const auto first = std::find_if(model.begin(), model.end(),
                                      [&](const Row& r) { return r.k == row.k && r.v == row.v; });
      model.erase(first);
      expected.push_back('-' + row.text());
      fixture.writer->rowDel(fixture.row(row.k, row.v));
    }
    ASSERT_EQ(fixture.news(), expected) << "step " << step;
    ASSERT_EQ(fixture.table.size(), model.size());

    const std::vector<Row> rows = ranked();
    const unsigned probe = random(1000);
    const BaseRow key = fixture.row(probe, 0);
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return r.k == probe; });
    rules->calls = 0;
    ASSERT_EQ(textOf(fixture.table, *fixture.writer->find(key, 1)),
              found == rows.end() ? "null" : found->text());
    if (kind.ordered) {
      // log2 of 2000, rounded up among the blocks and within one; one more comparison tells an equal row.
      ASSERT_LE(rules->calls, 13U);
      const auto bound = std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return r.k >= probe; });
      ASSERT_EQ(textOf(fixture.table, *fixture.writer->lower_bound(key, 1)),
                bound == rows.end() ? "null" : bound->text());
    }
    if (step % 50 == 0) {
      ASSERT_EQ(walk(fixture.table, *fixture.writer, 0), textsOf(model)) << "step " << step;
      ASSERT_EQ(walk(fixture.table, *fixture.writer, 1), textsOf(rows)) << "step " << step;
    }
  }
  // An index over the rows that are there by now says the same.
  fixture.addRules(kind.ordered, kind.unique);
  EXPECT_EQ(walk(fixture.table, *fixture.writer, 2), textsOf(ranked()));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, ProgrammedIndexModel,
    testing::Values(Kind{"ordered", true, false, false}, Kind{"orderedUnique", true, true, false},
                    Kind{"orderedMerging", true, true, true}, Kind{"hashed", false, false, false},
                    Kind{"hashedUnique", false, true, false}, Kind{"hashedMerging", false, true, true}),
    [](const auto& test) { return test.param.name; });

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
  for (unsigned char i = 0; i <= 2; ++i)
    EXPECT_EQ(walk(fixture.table, *fixture.writer, i).size(), fixture.table.size());
}

// Each call of a program fails in turn, and each allocation: table, indexes, stored rows and what readers
// hear stay as they were.
TEST(ProgrammedIndex, AProgramThatFailsChangesNothing) {
  struct Case {
    const char* what;
    bool keyed, merges;
    unsigned k, v;
    std::vector<std::string> told;
  };
  constexpr unsigned memory = 3;
  // So many that the next one splits a block of entries.
  constexpr unsigned rows = 256;
  const std::vector<Case> cases{
      {"insert", false, false, 500, 50, {"+500|50|\"\""}},
      {"replace", false, false, 3, 50, {"-3|30|\"\"", "+3|50|\"\""}},
      {"merge", false, true, 3, 50, {"-3|30|\"\"", "+3|80|\"\""}},
      {"replace by key", true, false, 3, 50, {"-3|30|\"\"", "+3|50|\"\""}},
      {"merge by key", true, true, 3, 50, {"-3|30|\"\"", "+3|80|\"\""}},
  };
  for (const Case& test : cases)
    for (const unsigned place : {0U, 1U, 2U, memory}) {
      SCOPED_TRACE(std::string(test.what) + ", failing " + std::to_string(place));
      unsigned failing = 1;
      for (bool failed = true; failed; ++failing) {
        Fixture fixture(test.keyed);
        const std::vector<TvPtr<Rules>> rules{fixture.addRules(true, false, valueColumn),
                                              fixture.addRules(false, true), fixture.addRules(true, true)};
        const auto failAt = [&](unsigned count) {
          if (place == memory)
            allocation::failAt(count);
          else
            rules[place]->failAt = count;
        };
        if (test.merges) fixture.table.autoUpdateIs(rules[place % rules.size()]);
        for (unsigned k = 1; k <= rows; ++k) fixture.insert(k, 10 * k);
        fixture.news();
        const std::vector<std::string> before = fixture.contents();
        const TvRowIterator cursor = fixture.writer->find(fixture.row(3, 0), 2);
        const BaseRow stored = *cursor;
        const long owners = stored.useCount();
        BaseRow row = fixture.row(test.k, test.v);
        failAt(failing);
        try {
          fixture.writer->rowIs(row);
          failed = false;
        } catch (const std::domain_error&) {
        } catch (const std::bad_alloc&) {
        }
        failAt(0);
        if (!failed) {
          EXPECT_EQ(fixture.news(), test.told);
          EXPECT_NE(fixture.contents(), before);
          break;
        }
        ASSERT_EQ(fixture.contents(), before) << "call " << failing;
        ASSERT_EQ(fixture.news(), std::vector<std::string>{}) << "call " << failing;
        ASSERT_EQ(stored.useCount(), owners) << "call " << failing;
        ASSERT_EQ(row.useCount(), 1) << "call " << failing;
        ASSERT_EQ(textOf(fixture.table, *cursor), "3|30|\"\"");
        if (place != memory) {
          failAt(1);
          ASSERT_THROW((void)fixture.writer->find(row, static_cast<unsigned char>(place + 1)),
                       std::domain_error);
        }
        // It can be made when nothing fails.
        fixture.writer->rowIs(row);
        ASSERT_EQ(fixture.news(), test.told);
      }
      EXPECT_GT(failing, 2U);
    }
}

TEST(ProgrammedIndex, IsNotAddedWhenItsProgramFailsOrAKeyStandsTwice) {
  Fixture fixture(false);
  fixture.insert(1, 10);
  fixture.insert(2, 20);
  fixture.insert(1, 30);
  const auto before = fixture.contents();
  for (const bool ordered : {false, true}) {
    const auto failing = std::make_shared<Rules>(1U, ordered, false);
    failing->failAt = 2;
    EXPECT_THROW(fixture.table.addIndex(failing), std::domain_error);
    EXPECT_EQ(messageOf<std::invalid_argument>(
                  [&] { fixture.table.addIndex(std::make_shared<Rules>(1U, ordered, true)); }),
              "table t: index 1 admits one row per key, but two rows have one");
  }
  EXPECT_EQ(messageOf<std::invalid_argument>([&] { fixture.table.addIndex(TvPtr<RowOpsBase>()); }),
            "table t: an index needs rules");
  EXPECT_EQ(messageOf<std::invalid_argument>(
                [&] { fixture.table.addIndex(std::make_shared<Rules>(2U, true, false)); }),
            "table t: rules of index 2 given to index 1");
  EXPECT_EQ(messageOf<std::out_of_range>([&] { (void)fixture.writer->begin(1); }), "table t has no index 1");
  EXPECT_EQ(fixture.contents(), before);
  fixture.addRules(true, false);
  EXPECT_EQ(walk(fixture.table, *fixture.writer, 1),
            (std::vector<std::string>{"1|10|\"\"", "1|30|\"\"", "2|20|\"\""}));
}

TEST(ProgrammedIndex, RefusesARowWithTheKeysOfTwo) {
  for (const bool merging : {false, true}) {
    Fixture fixture(true);
    const auto rules = fixture.addRules(false, true, valueColumn);
    if (merging) fixture.table.autoUpdateIs(rules);
    fixture.insert(1, 10);
    fixture.insert(2, 20);
    fixture.news();
    const auto before = fixture.contents();
    EXPECT_EQ(messageOf<TvOutOfRange>([&] { fixture.insert(1, 20); }),
              "table t: the row has the key of one row, but in index 1 that of another");
    // Both keys are those of one row, until the sum becomes the key of another.
    if (merging) {
      EXPECT_THROW(fixture.insert(1, 10), TvOutOfRange);
    }
    EXPECT_EQ(fixture.contents(), before);
    EXPECT_EQ(fixture.news(), std::vector<std::string>{});
  }
}

TEST(AutoUpdate, LeavesStoredRowsAsTheyAre) {
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
    EXPECT_EQ(fixture.news(), (std::vector<std::string>{"-1|10|\"\"", "+1|15|\"\""}));
    EXPECT_EQ(textOf(fixture.table, stored), "1|10|\"\"");
    EXPECT_EQ(stored.useCount(), 1);
    EXPECT_EQ(incoming.useCount(), 1);
    // A program that changes nothing: the same buffer goes and comes.
    rules->writes = false;
    const BaseRow merged = *fixture.writer->begin(0);
    fixture.insert(1, 7);
    EXPECT_EQ(fixture.news(), (std::vector<std::string>{"-1|15|\"\"", "+1|15|\"\""}));
    EXPECT_EQ((*fixture.writer->begin(1)).rowBuf(), merged.rowBuf());
    // A handle here, and one in each index.
    EXPECT_EQ(merged.useCount(), 3);
  }
}

TEST(AutoUpdate, MayChangeTheKeyToAFreeOneOnly) {
  Fixture fixture(true);
  const TvPtr<Rules> rules = fixture.addRules(true, true);
  rules->changesKey = true;
  fixture.table.autoUpdateIs(rules);
  fixture.insert(1, 10);
  fixture.insert(2, 20);
  fixture.news();
  const auto before = fixture.contents();
  EXPECT_EQ(messageOf<TvOutOfRange>([&] { fixture.insert(1, 2); }),
            "table t: the row has the key of one row, but in index 0 that of another");
  EXPECT_EQ(fixture.contents(), before);
  EXPECT_EQ(fixture.news(), std::vector<std::string>{});
  fixture.insert(1, 5);
  EXPECT_EQ(fixture.news(), (std::vector<std::string>{"-1|10|\"\"", "+5|15|\"\""}));
  const std::vector<std::string> rows{"2|20|\"\"", "5|15|\"\""};
  EXPECT_EQ(walk(fixture.table, *fixture.writer, 0), rows);
  EXPECT_EQ(walk(fixture.table, *fixture.writer, 1), rows);
}

TEST(AutoUpdate, RefusesAResultThatIsNoRowOfTheTable) {
  struct Breaking : Rules {
    using Rules::Rules;
    void autoUpdate(BaseRow& current, const BaseRow&) override { current = result; }
    BaseRow result;
  };
  Fixture fixture(true);
  const auto rules = std::make_shared<Breaking>(1U, true, false);
  fixture.table.autoUpdateIs(rules);
  fixture.insert(1, 10);
  EXPECT_EQ(messageOf<TvOutOfRange>([&] { fixture.insert(1, 2); }), "table t: autoUpdate has left no row");
  rules->result = BaseRow(12);
  EXPECT_EQ(messageOf<TvOutOfRange>([&] { fixture.insert(1, 2); }),
            "table t: row of 12 bytes does not fit, fixed length is 20");
  EXPECT_EQ(fixture.news(), std::vector<std::string>{"+1|10|\"\""});
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
    EXPECT_EQ(messageOf<TvOutOfRange>([&] { (void)fixture.writer->find(shortRow, i); }),
              "table t: row of 12 bytes does not fit, fixed length is 20");
    EXPECT_EQ(messageOf<TvOutOfRange>([&] { (void)fixture.writer->find(astray, i); }),
              "table t: column 's' reaches beyond its row of 20 bytes");
  }
  EXPECT_THROW((void)fixture.writer->lower_bound(shortRow, 1), TvOutOfRange);
  EXPECT_THROW(fixture.writer->rowIs(astray), TvOutOfRange);
  EXPECT_EQ(messageOf<std::runtime_error>([&] { (void)fixture.writer->lower_bound(shortRow, 2); }),
            "table t: index 2 has no order");
  EXPECT_EQ(ordered->calls + hashed->calls, 0U);
}

TEST(ProgrammedIndex, MovesCursorsFromAReplacedRowToItsSuccessor) {
  Fixture fixture(false);
  fixture.addRules(true, true);
  fixture.addRules(false, true);
  for (unsigned k = 1; k <= 3; ++k) fixture.insert(k, 0);
  TvRowIterator inOrder = fixture.writer->find(fixture.row(2, 0), 1);
  TvRowIterator inArrival = fixture.writer->find(fixture.row(2, 0), 2);
  fixture.insert(2, 7);
  EXPECT_EQ(textOf(fixture.table, *inOrder++), "3|0|\"\"");
  EXPECT_EQ(inOrder, fixture.writer->end(1));
  // The row that replaced it has arrived last.
  EXPECT_EQ(textOf(fixture.table, *inArrival++), "3|0|\"\"");
  EXPECT_EQ(textOf(fixture.table, *inArrival), "2|7|\"\"");
}

TEST(ProgrammedIndex, TakesOneComparisonForARowThatComesInOrder) {
  Fixture fixture(false);
  const TvPtr<Rules> rules = fixture.addRules(true, false);
  for (unsigned k = 0; k < 1000; ++k) fixture.insert(k / 2, k);
  EXPECT_EQ(rules->calls, 999U);
}

}  // namespace
}  // namespace Tavro
