#include <cstdio>
#include <fstream>
#include <map>

#include "Tavro/TvRTProxy.h"
#include "Tavro/database.h"
#include "support.h"

namespace Tavro::TvRT {
namespace {

const std::string head =
    "bindTable 0, 16, 0, \"t::out\", o, s\nbindTable 1, 16, 0, \"t::in\", i, s\nend\nentry init\nhalt\n";
// Sends the row of slot 1 to the output, through a row of its own.
const std::string emit =
    "pushColumn<int32_t> 1, 8\npopColumn<int32_t> 0, 8\npushColumn<int32_t> 1, 12\npopColumn<int32_t> 0, 12\n"
    "insertRow 0\n";
const std::string walkInput = "entry t1rdy.wc\nbegin 1\nlabel next\nnextRow 1\ninvCondBranch done\n" + emit +
                              "branch next\nlabel done\nhalt\n";
const std::string onRow = "entry t1row.wc\n" + emit + "halt\n";
// Three rows for each that arrives, all computed from slot 1 in turn: its own and those of 100 and 200 more.
std::string emitMore(int more) {
  return "pushColumn<int32_t> 1, 8\npopColumn<int32_t> 0, 8\npushColumn<int32_t> 1, 12\npushCnst<int32_t> " +
         std::to_string(more) + "\nadd<int32_t>\npopColumn<int32_t> 0, 12\ninsertRow 0\n";
}
const std::string onRowThrice = "entry t1row.wc\n" + emit + emitMore(100) + emitMore(200) + "halt\n";

// Tables of two numbers, the first of them the key of the inputs; an operator between them; and a reader of
// the output that writes down what it is told.
class HostingTest : public testing::Test {
 protected:
  HostingTest() {
    for (const char* name : {"t::in", "t::in2"}) makeTable(name, true);
    makeTable("t::out", false);
    reader = std::make_unique<TvTableInterface>(
        "reader", "", TvTableInterface::readMode, nullptr, [this](const BaseRow& row) { tell("+", row); },
        [this](const BaseRow& row) { tell("-", row); }, nullptr);
    reader->endHandlerIs([this] { log.push_back("end"); });
    getTavroDb()->bindInterface(*reader, "t::out", false);
    reader->activate(true);
    reader->activate(false);
    reader->clientReadyIs(true);
  }
  ~HostingTest() override {
    proxy.reset();
    writers.clear();
    reader.reset();
    last = BaseRow();
    database.clear();
    std::remove(path.c_str());
  }

  void makeTable(const std::string& name, bool hasKey) {
    tables[name] = &database.createTable(name, {{"k", TypeInt32, false, hasKey}, {"v", TypeInt32}});
    auto& writer = writers[name];
    writer = std::make_unique<TvTableInterface>("writer", "", TvTableInterface::writeMode, nullptr, nullptr,
                                                nullptr, nullptr);
    getTavroDb()->bindInterface(*writer, name, false);
  }

  BaseRow rowOf(int key, int value) {
    BaseRow row = tables["t::in"]->newRow();
    row.setColumn(8, key, 16);
    row.setColumn(12, value, 16);
    return row;
  }
  void insert(int key, int value, const std::string& table = "t::in") {
    BaseRow row = rowOf(key, value);
    writers[table]->rowIs(row);
  }
  void remove(int key, const std::string& table = "t::in") { writers[table]->rowDel(rowOf(key, 0)); }

  void factory(const std::string& program, bool standing, const Proxy::Parameters& params = {}) {
    std::ofstream(path) << program;
    proxy = Proxy::factory(path, params, standing);
  }
  void host(const std::string& program, bool standing, const Proxy::Parameters& params = {}) {
    factory(program, standing, params);
    proxy->enable();
  }
  void settle() { database.scheduler().runUntilIdle(); }

  // What the reader was told since the last call, "+KEY:VALUE ...".
  std::string told() {
    std::string text;
    for (const std::string& line : std::exchange(log, {})) text += (text.empty() ? "" : " ") + line;
    return text;
  }

  static std::string textOf(const BaseRow& row) {
    if (row.isNull()) return "null";
    int key = 0;
    int value = 0;
    row.getColumn(8, key);
    row.getColumn(12, value);
    return std::to_string(key) + ":" + std::to_string(value);
  }
  void tell(const char* sign, const BaseRow& row) {
    log.push_back(sign + textOf(row));
    last = row;
  }

  Database& database = getTavroDb()->database();
  std::map<std::string, Table*> tables;
  std::map<std::string, std::unique_ptr<TvTableInterface>> writers;
  std::unique_ptr<TvTableInterface> reader;
  std::vector<std::string> log;
  BaseRow last;
  TvPtr<Proxy> proxy;
  const std::string path = programPath();
};

// ---- construction

TEST_F(HostingTest, FactoryNamesTheFileThatIsMissing) {
  EXPECT_EQ(thrown<std::invalid_argument>([] { Proxy::factory("no/such.tva", true); }),
            "no/such.tva does not exist.");
  std::ofstream(path) << "frob\n";
  errorOutputOf([&] {
    EXPECT_EQ(thrown<TvAssemblyException>([&] { Proxy::factory(path, {}, true); }),
              path + ":0 Unknown opcode: frob.");
  });
}

TEST_F(HostingTest, FactoryRunsInitBeforeThereAreTables) {
  const std::string begin =
      "bindTable 0, 16, 0, \"t::out\", o, s\nbindTable 1, 16, 0, \"t::in\", i, s\nend\nentry init\n";
  EXPECT_EQ(thrown<std::out_of_range>([&] { factory(begin + "begin 1\nhalt\n", true); }),
            "attempt to index non-existent input row: 1");
  EXPECT_EQ(thrown<std::out_of_range>(
                [&] { factory(begin + "clearRow 0\npushCnst<bool> T\npopColumn<bool> 9, 8\n", true); }),
            "Attempt to access row ourside of numberof tables used by query.");
  EXPECT_EQ(thrown<std::out_of_range>(
                [&] { factory("bindTable 1, 16, 0, \"t::in\", i, s\nend\nentry init\nhalt\n", true); }),
            "attempt to index non-existent row")
      << "no output table";
  EXPECT_EQ(proxy, nullptr);
  factory(head, true);
  EXPECT_EQ(proxy->getInstCount(), 1);
}

TEST_F(HostingTest, PathsFollowTheClientsMap) {
  factory(head + walkInput, false, {{"t::in.i", "t::in2"}, {"a", ""}});
  EXPECT_EQ(proxy->pathKey("t::in.i"), "t::in2");
  EXPECT_EQ(proxy->pathKey("a"), "");
  EXPECT_EQ(proxy->pathKey("b"), "b");
  TableBindInfo info(*getTavroDb(), 1, 16, 0, "ns::name", "alias", "");
  EXPECT_EQ(proxy->pathKeyKey(&info), "ns::name.alias");
  EXPECT_EQ(proxy->observer("t::in.i"), nullptr);
  insert(1, 10);
  insert(2, 20, "t::in2");
  proxy->enable();
  ASSERT_NE(proxy->observer("t::in.i"), nullptr);
  EXPECT_EQ(proxy->observer("t::in.i")->name(), "t::in.i-Input");
  EXPECT_EQ(proxy->observer("t::in2"), nullptr);
  settle();
  EXPECT_EQ(told(), "+2:20 end");

  proxy->paramMapIs({{"b", "c"}});
  EXPECT_EQ(proxy->pathKey("b"), "c");
  EXPECT_EQ(proxy->pathKey("t::in.i"), "t::in.i");
  proxy->regRowOp(nullptr);
  proxy->unregRowOp(nullptr);
  Proxy::lockReg();
  Proxy::unlockReg();
}

TEST_F(HostingTest, MissingTablesFailAtEnable) {
  factory(
      "bindTable 0, 16, 0, \"t::out\", o, s\nbindTable 1, 16, 0, \"t::gone\", g, s\nend\nentry init\nhalt\n",
      true);
  EXPECT_THROW(proxy->enable(), std::exception);
  proxy.reset();
  factory(
      "bindTable 0, 16, 0, \"t::gone\", g, s\nbindTable 1, 16, 0, \"t::in\", i, s\nend\nentry init\nhalt\n",
      true);
  EXPECT_THROW(proxy->enable(), std::exception);
}

TEST_F(HostingTest, ParametersAreInTheirRowBeforeTheFirstRun) {
  const std::string declared =
      "bindTable 0, 16, 0, \"t::out\", o, s\nbindTable 1, 16, 0, \"t::in\", i, s\n"
      "bindParameters 20, \"{'n':8:'int32_t','m':12:'int32_t','s':16:'string_t'}\"\n"
      "bindTemporaries 16, \"\"\nend\nentry init\nhalt\n";
  // Slot 4 holds the parameters, slot 6 the temporaries.
  host(declared +
           "entry t1rdy.wc\npushParam<int32_t> 8\npopColumn<int32_t> 0, 8\npushParam<string_t> 16\n"
           "pushColumn<string_t> 4, 16\neq<string_t>\npushCnst<string_t> \"a\\\"b\"\npushParam<string_t> 16\n"
           "eq<string_t>\nboolAnd\npopColumn<bool> 6, 8\npushColumn<uint8_t> 6, 8\npopColumn<int32_t> 0, 12\n"
           "insertRow 0\nhalt\n",
       false, {{"n", "-5"}, {"s", "a\"b"}, {"unknown", "x"}});
  settle();
  EXPECT_EQ(told(), "+-5:1 end");
  EXPECT_THROW(host(declared, false, {{"n", "five"}}), std::invalid_argument);
}

// ---- one-shot queries

TEST_F(HostingTest, OneShotQueryReadsItsInputAndEnds) {
  insert(2, 20);
  insert(1, 10);
  factory(head + walkInput + onRow, false);
  const Lines lines = traceOf({{"Proxy", 8}, {"Context", 8}}, [&] {
    proxy->enable();
    EXPECT_EQ(told(), "") << "nothing runs before the scheduler does";
    settle();
    insert(3, 30);
    remove(1);
    settle();
  });
  EXPECT_EQ(told(), "+1:10 +2:20 end");
  const std::string context = "Context:8 TvRTContext execute: Entry -> ";
  EXPECT_EQ(
      lines,
      (Lines{"Proxy:8 TvRTProxy outputReady: void Tavro::TvRT::Proxy::outputReady(): readying all input "
             "observers for query",
             "Proxy:8 TvRTProxy onReady: void Tavro::TvRT::Proxy::onReady(Tavro::len_t, Tavro::len_t) "
             "input 1 marked as ready",
             context + "t1rdy.wc"}));
  EXPECT_EQ(last.useCount(), 2) << "the table's handle and ours: the operator keeps none";

  // An unblocking of a run that has ended ends the data once more.
  proxy->outputBlock(false);
  settle();
  EXPECT_EQ(told(), "end");
}

TEST_F(HostingTest, EveryCapacityGivesTheSameRows) {
  for (int i = 1; i <= 7; ++i) insert(i, 10 * i);
  const std::string program =
      "bindTable 0, 16, 0, \"t::out\", o, s\nbindTable 1, 16, 0, \"t::in\", i, s\nend\nentry init\nhalt\n" +
      walkInput;
  std::string all;
  for (int i = 1; i <= 7; ++i) all += "+" + std::to_string(i) + ":" + std::to_string(10 * i) + " ";
  for (const unsigned capacity : {0U, 1U, 2U, 3U, 6U, 7U}) {
    tables["t::out"]->capacityIs(capacity);
    host(program, false);
    settle();
    EXPECT_EQ(told(), all + "end") << capacity;
    proxy.reset();
  }
}

TEST_F(HostingTest, SuspendedRunOffersTheSameRowAgain) {
  insert(1, 10);
  insert(2, 20);
  tables["t::out"]->capacityIs(1);
  reader->clientReadyIs(false);
  factory(head + walkInput, false);
  const Lines lines = traceOf({{"Context", 6}, {"Proxy", 8}, {"TvRtOp", 8}}, [&] {
    proxy->enable();
    settle();
    EXPECT_EQ(tables["t::out"]->size(), 1U);
    reader->clientReadyIs(true);
    settle();
  });
  EXPECT_EQ(told(), "+1:10 +2:20 end");
  Lines inserts;
  for (const std::string& line : lines)
    if (line.find("InsertRowOp") != std::string::npos || line.find("Context:6") == 0 ||
        line.find("outputBlock") != std::string::npos)
      inserts.push_back(line.substr(line.find(": ") + 2));
  const std::string block = "void Tavro::TvRT::Proxy::outputBlock(bool): blocking notification = ";
  EXPECT_EQ(
      inserts,
      (Lines{"InsertRowOp( 0 )", "InsertRowOp( 0 )",
             "Tavro::TvRT::Context::ContextState Tavro::TvRT::Context::execute() instruction failed at 64:2",
             block + "BLOCKED", block + "UNBLOCKED", "Resuming @ 64", "InsertRowOp( 0 )"}));
}

TEST_F(HostingTest, EndOfDataWaitsUntilABlockedOutputIsFree) {
  insert(1, 10);
  host(head + walkInput, false);
  proxy->outputBlock(true);
  settle();
  EXPECT_EQ(told(), "+1:10") << "the run has ended, the query has not";
  proxy->outputBlock(false);
  settle();
  EXPECT_EQ(told(), "end");
}

// ---- standing queries

TEST_F(HostingTest, StandingQueryWalksThenReacts) {
  insert(1, 10);
  factory(head + walkInput + onRow, true);
  const Lines lines = traceOf({{"Proxy", 8}, {"Proxy", 9}}, [&] {
    proxy->enable();
    settle();
    EXPECT_EQ(told(), "+1:10");
    insert(2, 20);
    insert(1, 11);
    remove(2);
    remove(7);
    settle();
  });
  // The deleted row goes to the output as it is, where the row of before stands.
  EXPECT_EQ(told(), "+2:20 -1:10 +1:11 -2:20");
  ASSERT_EQ(lines.size(), 7U);
  EXPECT_EQ(lines[2].substr(lines[2].find(':')),
            ":9 TvRTProxy finish:  end of onReady input for standing query");
  const auto notification = [](const std::string& name) {
    return "Proxy:8 TvRTProxy " + name + ": void Tavro::TvRT::Proxy::" + name +
           "(Tavro::len_t, const Tavro::BaseRow&)1";
  };
  EXPECT_EQ(Lines(lines.begin() + 3, lines.end()), (Lines{notification("onRow"), notification("onDel"),
                                                          notification("onRow"), notification("onDel")}));
}

TEST_F(HostingTest, RowsThatArriveDuringTheFirstRunFollowIt) {
  insert(1, 10);
  insert(2, 20);
  tables["t::out"]->capacityIs(1);
  reader->clientReadyIs(false);
  host(head + walkInput + onRow, true);
  settle();
  // The walk is suspended on its second row; what comes now waits for its end, and the walk does not see it
  // twice.
  insert(0, 5);
  remove(1);
  settle();
  reader->clientReadyIs(true);
  settle();
  EXPECT_EQ(told(), "+1:10 +2:20 +0:5 -1:10");
}

TEST_F(HostingTest, NotificationsWaitInOrderWhileTheOutputBlocks) {
  host(head + onRow, true);
  settle();
  proxy->outputBlock(true);
  insert(1, 10);
  insert(1, 11);
  remove(1);
  insert(2, 20);
  settle();
  EXPECT_EQ(told(), "") << "the inputs are deactivated";
  proxy->outputBlock(false);
  settle();
  EXPECT_EQ(told(), "+1:10 -1:10 +1:11 -1:11 +2:20");
}

// A run that was suspended on one row computes the next from slot 1. A refused notification must leave that
// slot to the run that is under way.
TEST_F(HostingTest, RefusedRowDoesNotReachTheSlotOfASuspendedRun) {
  for (const unsigned capacity : {0U, 1U, 2U, 3U}) {
    tables["t::out"]->capacityIs(capacity);
    host(head + onRowThrice, true);
    settle();
    insert(1, 1);
    insert(2, 2);
    insert(3, 3);
    settle();
    EXPECT_EQ(told(), "+1:1 +1:101 +1:201 +2:2 +2:102 +2:202 +3:3 +3:103 +3:203") << "capacity " << capacity;
    proxy.reset();
    for (const int key : {1, 2, 3}) remove(key);
  }
}

TEST_F(HostingTest, SuspendedOperatorRefusesRowsAndPassesDeletionsOn) {
  tables["t::out"]->capacityIs(1);
  reader->clientReadyIs(false);
  host(head + onRow, true);
  settle();
  BaseRow first = rowOf(1, 10);
  proxy->onRow(1, first);
  proxy->onRow(1, rowOf(2, 20));
  EXPECT_EQ(thrown<TvTableFull>([&] { proxy->onRow(1, rowOf(3, 30)); }), "Context not ready, state = 3");
  EXPECT_EQ(thrown<TvTableFull>([&] { proxy->onReady(1, 1); }), "Context not ready, state = 3");
  proxy->onDel(1, first);
  EXPECT_EQ(tables["t::out"]->size(), 0U);
  reader->clientReadyIs(true);
  settle();
  EXPECT_EQ(told(), "+1:10 -1:10 +2:20");
}

TEST_F(HostingTest, ProgramWithARowEntryAloneIsAPureReaction) {
  insert(1, 10);
  host(head + onRow, true);
  settle();
  EXPECT_EQ(told(), "");
  insert(2, 20);
  settle();
  EXPECT_EQ(told(), "+2:20");
}

TEST_F(HostingTest, RowWithoutAnEntryStillComesIntoItsSlot) {
  // The second input has a row entry, which looks at the slot of the first.
  const std::string program =
      "bindTable 0, 16, 0, \"t::out\", o, s\nbindTable 1, 16, 0, \"t::in\", i, s\nbindTable 2, 16, 0, "
      "\"t::in2\", j, s\nend\n"
      "entry init\nhalt\nentry t2row.wc\n" +
      emit + "halt\n";
  host(program, true);
  settle();
  BaseRow row = rowOf(7, 70);
  proxy->onRow(1, row);
  EXPECT_EQ(row.useCount(), 2) << "shared, not copied";
  insert(1, 1, "t::in2");
  settle();
  EXPECT_EQ(told(), "+7:70");
}

TEST_F(HostingTest, TwoInputsStartOneRunWhenBothAreReady) {
  insert(1, 10);
  insert(2, 20, "t::in2");
  factory(
      "bindTable 0, 16, 0, \"t::out\", o, s\nbindTable 1, 16, 0, \"t::in\", i, s\nbindTable 2, 16, 0, "
      "\"t::in2\", j, s\nend\n"
      "entry init\nhalt\nentry t2rdy.wc\nhalt\n" +
          walkInput + "entry t2row.wc\nhalt\n",
      false);
  const Lines lines = traceOf({{"Proxy", 8}, {"Context", 8}}, [&] {
    proxy->enable();
    settle();
  });
  EXPECT_EQ(told(), "+1:10 end");
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_NE(lines[1].find("input 1 marked"), std::string::npos);
  EXPECT_NE(lines[2].find("input 2 marked"), std::string::npos);
  EXPECT_EQ(lines[3], "Context:8 TvRTContext execute: Entry -> t1rdy.wc")
      << "the entry of input 1 serves all";
}

// Bits of tables from 31 on are shared: 31 sets all of the upper half, 32 and above the bits of 0 and above.
TEST_F(HostingTest, ReadyBitsOfHighTables) {
  struct Case {
    std::vector<int> inputs;
    std::vector<int> starting;  // the reports that start a run
  };
  for (const Case& c : {Case{{1, 33}, {1, 33}}, Case{{31, 32}, {32}}, Case{{1, 31, 63}, {31, 63}},
                        Case{{2, 3, 34}, {3, 34}}, Case{{30, 31}, {31}}}) {
    std::string program = "bindTable 0, 16, 0, \"t::out\", o, s\n";
    for (const int input : c.inputs) {
      const std::string number = std::to_string(input);
      program += "bindTable " + number + ", 16, 0, \"t::in\", i" + number + ", s\n";
    }
    factory(program + "end\nentry init\nhalt\nentry t1rdy.wc\ninsertRow 0\nhalt\n", true);
    proxy->enable();
    const len_t entry = 2;
    for (const int input : c.inputs) {
      const std::size_t before = tables["t::out"]->size();
      proxy->onReady(static_cast<len_t>(input), entry);
      const bool starts = std::find(c.starting.begin(), c.starting.end(), input) != c.starting.end();
      EXPECT_EQ(tables["t::out"]->size() - before, starts ? 1U : 0U) << input << " of " << c.inputs.size();
    }
    proxy.reset();
  }
}

TEST_F(HostingTest, ExceptionOutOfARunLeavesTheOperatorUsable) {
  // Rows of key 1 are written into slot 1 after it was walked to its end, which leaves a null row there.
  host(head +
           "entry t1row.wc\npushColumn<int32_t> 1, 8\npushCnst<int32_t> 1\neq<int32_t>\ninvCondBranch good\n"
           "pushCnst<int32_t> 5\nfetchRow 1\ndiscard<bool>\npopColumn<int32_t> 1, 8\nlabel good\n" +
           emit + "halt\n",
       true);
  settle();
  insert(2, 20);
  insert(1, 10);
  insert(3, 30);
  EXPECT_EQ(thrown<std::runtime_error>([&] { settle(); }), "setting column in NULL row");
  settle();
  EXPECT_EQ(told(), "+2:20 +3:30");
}

TEST_F(HostingTest, OperatorMayGoWhileItIsSuspended) {
  tables["t::out"]->capacityIs(1);
  reader->clientReadyIs(false);
  host(head + onRowThrice, true);
  settle();
  insert(1, 1);
  insert(2, 2);
  settle();
  proxy.reset();
  insert(3, 3);
  reader->clientReadyIs(true);
  settle();
  EXPECT_EQ(told(), "+1:1");
  EXPECT_EQ(last.useCount(), 2);
}

TEST_F(HostingTest, FiguresBuildUpAndAreCleared) {
  host(head + onRow, true);
  settle();
  insert(1, 10);
  settle();
  EXPECT_EQ(proxy->getInstCount(), 1);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(proxy->getTotalInstructionsExecuted(), 0);
    EXPECT_EQ(proxy->getTimeDuration(), 0);
  }
}

// ---- row access

TEST_F(HostingTest, RowAccessTestsItsIndexAndKey) {
  insert(1, 10);
  insert(3, 30);
  host(head, true);
  for (const len_t index : {len_t{0}, len_t{2}, len_t{65535}}) {
    const std::string number = std::to_string(index);
    const std::string input = "attempt to index non-existent input row: " + number;
    EXPECT_EQ(thrown<std::out_of_range>([&] { proxy->fetchRow(index, rowOf(1, 0), 0); }), input);
    EXPECT_EQ(thrown<std::out_of_range>([&] { proxy->lower_bound(index, rowOf(1, 0), 0); }), input);
    EXPECT_EQ(thrown<std::out_of_range>([&] { proxy->begin(index, 0); }), input);
    EXPECT_EQ(thrown<std::out_of_range>([&] { proxy->nextRow(index); }),
              "attempt to index non-existent table: " + number);
  }
  EXPECT_EQ(thrown<TvNullRow>([&] { proxy->fetchRow(1, BaseRow(), 0); }), "null row");
  EXPECT_EQ(thrown<TvNullRow>([&] { proxy->lower_bound(1, BaseRow(), 0); }), "null row");
  EXPECT_EQ(thrown<std::out_of_range>([&] { proxy->fetchRow(2, BaseRow(), 0); }),
            "attempt to index non-existent input row: 2")
      << "the index is tested first";

  EXPECT_TRUE(proxy->nextRow(1).isNull()) << "before any begin";
  BaseRow key = rowOf(3, 0);
  key.rowTypeIs(999);
  const BaseRow shared = key;
  EXPECT_EQ(textOf(proxy->fetchRow(1, key, 256)), "3:30") << "the low 8 bits name the index";
  EXPECT_EQ(shared.rowType(), tables["t::in"]->rowType()) << "written without a copy";
  EXPECT_TRUE(proxy->fetchRow(1, rowOf(2, 0), 0).isNull());
  EXPECT_THROW(proxy->fetchRow(1, key, 1), std::exception) << "no such index";

  proxy->lower_bound(1, rowOf(2, 0), 0);
  const BaseRow found = proxy->nextRow(1);
  EXPECT_EQ(textOf(found), "3:30");
  EXPECT_EQ(found.useCount(), 2) << "the table's row itself";
  EXPECT_TRUE(proxy->nextRow(1).isNull());
  EXPECT_TRUE(proxy->nextRow(1).isNull());
  proxy->begin(1, 0);
  EXPECT_EQ(textOf(proxy->nextRow(1)), "1:10");
}

TEST_F(HostingTest, RangesEndAtTheProjectionOfTheirRow) {
  const OwnedContext context = assemble(
      "bindTable 0, 16, 0, \"t::out\", o, s\nbindTable 1, 16, 0, \"t::in\", i, s\nend\nentry "
      "start\nhalt\nentry t1pru.wc\n"
      "pushColumn<int32_t> 1, 8\npushCnst<int32_t> 1\nadd<int32_t>\npopColumn<int32_t> 0, 8\nhalt\n");
  const BaseRow row = rowOf(5, 50);
  EXPECT_TRUE(prepDelRange(context.get(), 1, BaseRow(), true).isNull());
  EXPECT_EQ(prepDelRange(context.get(), 1, row, false).rowBuf(), row.rowBuf())
      << "no projection for the lower end";
  EXPECT_EQ(textOf(prepDelRange(context.get(), 1, row, true)), "6:0");
  EXPECT_EQ(context->getRow(1).rowBuf(), row.rowBuf());
}

}  // namespace
}  // namespace Tavro::TvRT
