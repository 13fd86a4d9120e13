#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "../allocation.h"
#include "Tavro/TvRTIndexRowOps.h"
#include "Tavro/TvRTLoader.h"
#include "Tavro/TvRTProxy.h"
#include "Tavro/database.h"

namespace Tavro::TvRT {
namespace {

using allocation::attempt;
using allocation::Outcome;
using Rows = std::vector<std::pair<int, std::string>>;

constexpr len_t rowLength = 16;
// So long that no string keeps it in place.
const std::string longText = "a text that is longer than what a string keeps within itself";

// Runs the scenario with each of its allocations failing in turn, until it has no more. A scenario clears up
// behind itself.
void failEachAllocation(const std::function<Outcome(std::size_t failing)>& scenario) {
  // What is made once for the process is made now.
  scenario(0);
  std::size_t failing = 0;
  Outcome outcome{};
  do {
    SCOPED_TRACE("allocation " + std::to_string(++failing));
    const std::size_t before = allocation::inUse();
    outcome = scenario(failing);
    // Counted outside of the assertion, which allocates.
    const std::size_t after = allocation::inUse();
    EXPECT_EQ(after, before) << "blocks in use";
  } while (outcome.hasFailed && !testing::Test::HasFailure());
  EXPECT_FALSE(outcome.hasThrown) << "without a failed allocation";
  EXPECT_GT(failing, 2U) << "nothing has failed";
}

class Program {
 public:
  explicit Program(const std::string& text)
      : path_(testing::TempDir() + "failuresTest." + std::to_string(getpid()) + ".tva") {
    std::ofstream(path_) << text;
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() { std::remove(path_.c_str()); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// ---- loading

// A statement of every row of the catalogue that is an instruction, behind every directive.
std::string everyStatement() {
  const std::map<std::string, std::string> arguments{
      {"row", "1"},      {"to-row", "0"},        {"column", "8"},          {"to-column", "8"},
      {"index", "0"},    {"iterator", "1"},      {"constant", "7"},        {"offset", "8"},
      {"label", "here"}, {"less-label", "here"}, {"greater-label", "here"}};
  std::string text =
      "queryName \"" + longText + "\"\nqueryHash \"h\"\nsrc \"" + longText +
      "\"\nproperties \"isOneShot=true,isFilter=true\"\nbindTable 0, 16, 0, \"t::out\", o, \"" + longText +
      "\"\nbindTable 1, 16, 0, \"t::in\", i, s\n"
      "bindParameters 16, \"{'limit':8:'int32_t','names[]':12:'string_t'}\"\nbindConstants 8, \"\"\n"
      "bindTemporaries 16, \"\"\niterCount 2\nend\nentry init\nlabel here\npushCnst<string_t> \"" +
      longText + "\"\npushCnst<IpGenPrefix> \"10.0.0.0/8\"\n";
  for (const OpCatalogueRow& row : opCatalogue) {
    // Directives stand above, and these two are words that nothing carries out.
    const bool isDirective =
        row.cat.category == ControlOps && row.arguments.find("label") == std::string::npos;
    if (row.name == "leftShift" || row.name == "pushAryCnst" || (isDirective && row.cat.argCount != 0))
      continue;
    if (row.name == "end" || row.name == "label" || row.name == "entry") continue;
    text += row.name;
    if (row.cat.typed)
      text += row.name == "coerce" || row.name == "nswap" ? "<int32_t, int64_t>" : "<int32_t>";
    std::istringstream words{std::string(row.arguments)};
    const char* before = " ";
    for (std::string word; words >> word; before = ", ") text += before + arguments.at(word);
    text += "\n";
  }
  return text;
}

// What can be seen of a program that was loaded.
std::string summaryOf(const Context& context) {
  std::ostringstream text;
  text << context.maxLoc() << context.queryName() << context.queryHash() << context.src() << context.oneShot()
       << context.tableBindInfo(0)->toString() << context.tableBindInfo(1)->toString()
       << context.parameterColumns().size() << context.tbisSize() << context.translateEntry("here")
       << context.fetchString(1);
  return text.str();
}

TEST(Failures, LoadingFailsAsAWhole) {
  const Program program(everyStatement());
  const auto load = [&] { return OwnedContext(Loader(getTavroDb(), program.path(), {}).load()); };
  const std::string expected = summaryOf(*load());
  failEachAllocation([&](std::size_t failing) {
    OwnedContext context;
    const Outcome outcome = attempt(failing, [&] { context = load(); });
    EXPECT_EQ(outcome.hasThrown, context == nullptr);
    if (context != nullptr) {
      EXPECT_EQ(summaryOf(*context), expected);
    }
    EXPECT_EQ(summaryOf(*load()), expected) << "when nothing fails";
    return outcome;
  });
}

// ---- operators

std::string textOf(const BaseRow& row) {
  StringValueReference text;
  row.getColumn(12, text);
  return std::string(text.view());
}

// Tables of a number and a text, and a reader of the output that can be held.
class Tables {
 public:
  Tables() {
    for (const auto& [table, writer] : {std::pair{&in, &inWriter}, {&other, &otherWriter}})
      database.bindInterface(*writer, table->name());
    database.bindInterface(reader, "t::out");
    reader.activate(false);
    for (const int key : {1, 2}) insert(otherWriter, key, "other");
  }
  ~Tables() { database.clear(); }

  static BaseRow rowOf(int key, const std::string& text) {
    BaseRow row(rowLength);
    row.setColumn(8, key, rowLength);
    row.setColumn(12, text, rowLength);
    return row;
  }
  void insert(TvTableInterface& writer, int key, const std::string& text) {
    BaseRow row = rowOf(key, text);
    writer.rowIs(row);
  }
  void insert(int key) { insert(inWriter, key, longText); }
  void settle() { database.scheduler().runUntilIdle(); }
  Rows output() const {
    Rows rows;
    for (TvRowIterator i = reader.begin(0); i != reader.end(0); ++i) {
      int key = 0;
      (*i).getColumn(8, key);
      rows.emplace_back(key, textOf(*i));
    }
    return rows;
  }

  Database& database = getTavroDb()->database();

 private:
  Table& make(const std::string& name, bool hasKey) {
    return database.createTable(name, {{"k", TypeInt32, false, hasKey}, {"s", TypeString}});
  }

 public:
  Table& in = make("t::in", true);
  Table& other = make("t::other", true);
  Table& out = make("t::out", false);
  TvTableInterface inWriter{"w", "", TvTableInterface::writeMode, nullptr, nullptr, nullptr, nullptr};
  TvTableInterface otherWriter{"o", "", TvTableInterface::writeMode, nullptr, nullptr, nullptr, nullptr};
  unsigned told = 0;
  TvTableInterface reader{
      "r", "", TvTableInterface::readMode, nullptr, [this](const BaseRow&) { ++told; }, nullptr, nullptr};
};

const std::string head =
    "bindTable 0, 16, 0, \"t::out\", o, s\nbindTable 1, 16, 0, \"t::in\", i, s\n"
    "bindTable 2, 16, 0, \"t::other\", t, s\nbindParameters 12, \"{'name':8:'string_t'}\"\nend\n"
    "entry init\nhalt\n";
// Walks the other table and looks the row up there, then emits it `copies` times. The text goes through the
// stack.
std::string reaction(unsigned copies) {
  std::string text =
      "entry t1row.wc\nbegin 2\nlabel next\nnextRow 2\ncondBranch next\ncopyColumn<int32_t> 1, 8, 3, 8\n"
      "fetchRow 2\ndiscard<bool>\n";
  for (; copies > 0; --copies)
    text +=
        "copyColumn<int32_t> 1, 8, 0, 8\npushColumn<string_t> 1, 12\npopColumn<string_t> 0, 12\n"
        "insertRow 0\n";
  return text + "halt\n";
}

TEST(Failures, AnOperatorThatDoesNotStartLeavesNothing) {
  const Program program(head + reaction(1));
  failEachAllocation([&](std::size_t failing) {
    Tables tables;
    TvPtr<Proxy> proxy;
    const auto start = [&] {
      proxy = Proxy::factory(program.path(), {{"name", longText}}, true);
      proxy->enable();
    };
    const Outcome outcome = attempt(failing, start);
    if (outcome.hasThrown) {
      proxy.reset();
      tables.settle();
      start();
    }
    tables.settle();
    tables.insert(1);
    tables.settle();
    EXPECT_EQ(tables.output(), (Rows{{1, longText}}));
    return outcome;
  });
}

// A run that fails leaves the rows that it has inserted, each as a whole, and an operator that goes on with
// the next row.
void failRuns(unsigned copies, std::size_t capacity, bool isSuspended) {
  const Program program(head + reaction(copies));
  failEachAllocation([&](std::size_t failing) {
    Tables tables;
    tables.out.capacityIs(capacity);
    const TvPtr<Proxy> proxy = Proxy::factory(program.path(), true);
    proxy->enable();
    tables.settle();
    tables.insert(1);
    if (isSuspended) tables.settle();
    const Outcome outcome = attempt(failing, [&] {
      tables.reader.clientReadyIs(true);
      tables.settle();
    });
    tables.settle();
    const Rows rows = tables.output();
    EXPECT_LE(rows.size(), copies);
    EXPECT_TRUE(outcome.hasThrown || rows.size() == copies) << "a failure was kept quiet";
    Rows expected(rows.size(), {1, longText});
    EXPECT_EQ(rows, expected);
    tables.insert(2);
    tables.settle();
    expected.insert(expected.end(), copies, {2, longText});
    EXPECT_EQ(tables.output(), expected);
    EXPECT_EQ(tables.told, expected.size());
    return outcome;
  });
}

TEST(Failures, AStandingRunFailsAlone) {
  for (const std::size_t capacity : {0U, 1U, 2U}) failRuns(4, capacity, false);
}
TEST(Failures, ASuspendedRunFailsAlone) {
  for (const std::size_t capacity : {1U, 2U}) failRuns(4, capacity, true);
}

// ---- programmed rules of an index

TEST(Failures, RulesLeaveTheRowsAsTheyWere) {
  const Program program(
      "bindTable 1, 16, 0, \"t::in\", a, s\nbindTable 2, 16, 0, \"t::in\", b, s\nend\nentry init\nhalt\n"
      "entry hash\npushCnst<uint64_t> 5\npushColumn<string_t> 1, 12\nhash<string_t>\nhalt\n"
      "entry equals\nequalColumn<string_t> 1, 12, 2, 12\nhalt\n"
      "entry less\npushColumn<string_t> 1, 12\npushColumn<string_t> 2, 12\nlt<string_t>\nhalt\n"
      "entry autoUpdate\ncopyColumn<string_t> 2, 12, 1, 12\nhalt\n");
  failEachAllocation([&](std::size_t failing) {
    const BaseRow stored = Tables::rowOf(1, "b");
    const BaseRow incoming = Tables::rowOf(1, longText);
    TvPtr<RowOpsBase> rules;
    BaseRow merged = stored;
    const auto work = [&] {
      rules = genTvRtRowOps(1, true, true, program.path());
      merged = stored;
      const bool isRight = rules->hash(stored) == rules->hash(stored) && !rules->equals(stored, incoming) &&
                           rules->less(incoming, stored);
      if (!isRight) throw std::logic_error("wrong answer");
      rules->autoUpdate(merged, incoming);
    };
    const Outcome outcome = attempt(failing, work);
    EXPECT_EQ(textOf(stored), "b");
    if (outcome.hasThrown) {
      // The rules that have failed go on, when there are any.
      if (rules != nullptr) {
        EXPECT_TRUE(rules->equals(stored, stored));
      }
      EXPECT_NO_THROW(work());
    }
    EXPECT_EQ(textOf(merged), longText);
    EXPECT_EQ(stored.useCount(), 1);
    EXPECT_EQ(incoming.useCount(), 1);
    return outcome;
  });
}

}  // namespace
}  // namespace Tavro::TvRT
