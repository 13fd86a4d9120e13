#include <cstdio>
#include <fstream>

#include "Tavro/TvRTProxy.h"
#include "Tavro/database.h"
#include "support.h"

namespace Tavro::TvRT {
namespace {

// A program that binds an output and an input, and has an init entry that does nothing.
std::string binding(const std::string& output, const std::string& input) {
  return "bindTable 0, 16, 0, \"" + output + "\", o, s\nbindTable 1, 16, 0, \"" + input +
         "\", i, s\nend\nentry init\nhalt\n";
}
const std::string head = binding("t::out", "t::in");
// Sends the row of slot 1 to the output, through a row of its own.
const std::string emit =
    "pushColumn<int32_t> 1, 8\npopColumn<int32_t> 0, 8\npushColumn<int32_t> 1, 12\npopColumn<int32_t> 0, 12\n"
    "insertRow 0\n";
const std::string walkInput = "entry t1rdy.wc\nbegin 1\nlabel next\nnextRow 1\ninvCondBranch done\n" + emit +
                              "branch next\nlabel done\nhalt\n";
const std::string onRow = "entry t1row.wc\n" + emit + "halt\n";
// Tables of two numbers, the first of them the key of the inputs; an operator between them; and a reader of
// the output that writes down what it is told.
class HostingTest : public testing::Test {
 protected:
  HostingTest() {
    getTavroDb()->bindInterface(writer, "t::in", false);
    reader.endHandlerIs([this] { log.push_back("end"); });
    getTavroDb()->bindInterface(reader, "t::out", false);
    reader.activate(true);
    reader.activate(false);
    reader.clientReadyIs(true);
  }
  ~HostingTest() override { std::remove(path.c_str()); }

  BaseRow rowOf(int key, int value) {
    BaseRow row = in.newRow();
    row.setColumn(8, key, 16);
    row.setColumn(12, value, 16);
    return row;
  }
  void insert(int key, int value) {
    BaseRow row = rowOf(key, value);
    writer.rowIs(row);
  }
  void remove(int key) { writer.rowDel(rowOf(key, 0)); }

  void factory(const std::string& program, bool standing, const Proxy::Parameters& params = {}) {
    std::ofstream(path) << program;
    proxy = Proxy::factory(path, params, standing);
  }
  void settle() { tables.database.scheduler().runUntilIdle(); }
  void host(const std::string& program, bool standing) {
    factory(program, standing);
    proxy->enable();
    settle();
  }
  // Keeps the reader from taking rows, so that an output that takes so many fills up.
  void holdOutput(unsigned capacity) {
    out.capacityIs(capacity);
    reader.clientReadyIs(false);
  }
  void releaseOutput() {
    reader.clientReadyIs(true);
    settle();
  }

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

  // What is declared last goes first: the operator before the interfaces, and those before the tables.
  struct Tables {
    ~Tables() { database.clear(); }
    Table& make(const std::string& name, bool hasKey) const {
      return database.createTable(name, {{"k", TypeInt32, false, hasKey}, {"v", TypeInt32}});
    }
    Database& database = getTavroDb()->database();
  } tables;
  Table& in = tables.make("t::in", true);
  Table& out = tables.make("t::out", false);
  std::vector<std::string> log;
  BaseRow last;
  TvTableInterface writer{"writer", "", TvTableInterface::writeMode, nullptr, nullptr, nullptr, nullptr};
  TvTableInterface reader{"reader",
                          "",
                          TvTableInterface::readMode,
                          nullptr,
                          [this](const BaseRow& row) { tell("+", row); },
                          [this](const BaseRow& row) { tell("-", row); },
                          nullptr};
  const std::string path = programPath();
  TvPtr<Proxy> proxy;
};

// ---- construction

TEST_F(HostingTest, FactoryReportsFaultsBeforeThereIsAnOperator) {
  EXPECT_EQ(thrown<std::invalid_argument>([] { Proxy::factory("no/such.tva", true); }),
            "no/such.tva does not exist.");
  EXPECT_EQ(thrown<std::out_of_range>(
                [&] { factory("bindTable 1, 16, 0, \"t::in\", i, s\nend\nentry init\nhalt\n", true); }),
            "attempt to index non-existent row")
      << "no output table";
  EXPECT_EQ(proxy, nullptr);
}

TEST_F(HostingTest, PathsFollowTheClientsMap) {
  factory(binding("t::out", "t::gone") + walkInput, false, {{"t::gone.i", "t::in"}, {"a", ""}});
  EXPECT_EQ(proxy->pathKey("a"), "");
  EXPECT_EQ(proxy->pathKey("b"), "b");
  TableBindInfo info(*getTavroDb(), 1, 16, 0, "ns::name", "alias", "");
  EXPECT_EQ(proxy->pathKeyKey(&info), "ns::name.alias");
  EXPECT_EQ(proxy->observer("t::gone.i"), nullptr);
  proxy->enable();
  ASSERT_NE(proxy->observer("t::gone.i"), nullptr);
  EXPECT_EQ(proxy->observer("t::gone.i")->name(), "t::gone.i-Input");
  proxy->paramMapIs({{"b", "c"}});
  EXPECT_EQ(proxy->pathKey("b"), "c");
  EXPECT_EQ(proxy->pathKey("t::gone.i"), "t::gone.i");
}

TEST_F(HostingTest, MissingTablesAndBadParametersFailAtEnable) {
  for (const std::string& program : {binding("t::out", "t::gone"), binding("t::gone", "t::in")}) {
    factory(program, true);
    EXPECT_THROW(proxy->enable(), std::exception);
    proxy.reset();
  }
  // What has been bound can be read.
  factory(
      "bindTable 0, 16, 0, \"t::out\", o, s\nbindTable 1, 16, 0, \"t::in\", i, s\n"
      "bindTable 2, 16, 0, \"t::gone\", g, s\nend\nentry init\nhalt\n",
      true);
  EXPECT_THROW(proxy->enable(), std::exception);
  insert(1, 10);
  proxy->begin(1, 0);
  EXPECT_EQ(textOf(proxy->nextRow(1)), "1:10");
  factory("bindParameters 12, \"{'n':8:'int32_t'}\"\n" + head, false, {{"n", "five"}});
  EXPECT_THROW(proxy->enable(), std::invalid_argument);
}

// ---- one-shot queries

TEST_F(HostingTest, EndOfDataWaitsUntilABlockedOutputIsFree) {
  insert(1, 10);
  factory(head + walkInput, false);
  proxy->enable();
  proxy->outputBlock(true);
  settle();
  EXPECT_EQ(told(), "+1:10") << "the run has ended, the query has not";
  // An unblocking of a run that has ended ends the data once more.
  for (int unblocking = 0; unblocking < 2; ++unblocking) {
    proxy->outputBlock(false);
    settle();
    EXPECT_EQ(told(), "end");
  }
}

// ---- standing queries

TEST_F(HostingTest, NotificationsWaitInOrderWhileTheOutputBlocks) {
  host(head + onRow, true);
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

TEST_F(HostingTest, SuspendedOperatorRefusesRowsAndPassesDeletionsOn) {
  holdOutput(1);
  host(head + onRow, true);
  BaseRow first = rowOf(1, 10);
  proxy->onRow(1, first);
  proxy->onRow(1, rowOf(2, 20));
  EXPECT_EQ(thrown<TvTableFull>([&] { proxy->onRow(1, rowOf(3, 30)); }), "Context not ready, state = 3");
  EXPECT_EQ(thrown<TvTableFull>([&] { proxy->onReady(1, 1); }), "Context not ready, state = 3");
  EXPECT_EQ(out.size(), 1U);
  proxy->onDel(1, first);
  EXPECT_EQ(out.size(), 0U);
  releaseOutput();
  settle();
  EXPECT_EQ(told(), "+1:10 -1:10 +2:20");
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
    for (const int input : c.inputs)
      program += "bindTable " + std::to_string(input) + ", 16, 0, \"t::in\", i, s\n";
    factory(program + "end\nentry init\nhalt\nentry t1rdy.wc\ninsertRow 0\nhalt\n", true);
    proxy->enable();
    const len_t entry = 2;
    for (const int input : c.inputs) {
      const std::size_t before = out.size();
      proxy->onReady(static_cast<len_t>(input), entry);
      const bool starts = std::find(c.starting.begin(), c.starting.end(), input) != c.starting.end();
      EXPECT_EQ(out.size() - before, starts ? 1U : 0U) << input << " of " << c.inputs.size();
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
  insert(2, 20);
  insert(1, 10);
  insert(3, 30);
  EXPECT_EQ(thrown<std::runtime_error>([&] { settle(); }), "setting column in NULL row");
  settle();
  EXPECT_EQ(told(), "+2:20 +3:30");
}

// The rules of index 1, by a client that halts the run which looks a row up.
struct HaltingRules : RowOpsBase {
  unsigned int hash(const BaseRow&) override { return 0; }
  bool equals(const BaseRow&, const BaseRow&) override {
    context->halt();
    return true;
  }
  bool less(const BaseRow&, const BaseRow&) override { return false; }
  void autoUpdate(BaseRow&, const BaseRow&) override {}
  bool unique() override { return false; }
  bool ordered() override { return false; }
  unsigned short index() override { return 1; }
  long long getTotalInstructionsExecuted() override { return 0; }

  Context* context = nullptr;
};

TEST_F(HostingTest, AClientMayHaltTheRunThatCallsIt) {
  const auto rules = std::make_shared<HaltingRules>();
  in.addIndex(rules);
  insert(1, 10);
  rules->context =
      assemble(head + "entry t1rdy.wc\nfetchRowIndexed 1, 1\ncondBranch found\nhalt\nlabel found\n" + emit +
               "halt\n")
          .release();
  proxy = TvPtr<Proxy>(new Proxy(rules->context, false));
  proxy->init("", nullptr);
  rules->context->setProxy(proxy.get());
  proxy->enable();
  settle();
  EXPECT_EQ(told(), "end");
  EXPECT_EQ(rules->context->depth(), 2U) << "that a row was found";
}

TEST_F(HostingTest, OperatorMayGoWhileItIsSuspended) {
  holdOutput(1);
  host(head + onRow, true);
  insert(1, 1);
  insert(2, 2);
  settle();
  proxy.reset();
  insert(3, 3);
  releaseOutput();
  EXPECT_EQ(told(), "+1:1");
  EXPECT_EQ(last.useCount(), 2);
}

// ---- row access

TEST_F(HostingTest, RowAccessTestsItsIndexAndKey) {
  insert(1, 10);
  insert(3, 30);
  host(head, true);
  for (const len_t index : {len_t{0}, len_t{2}, len_t{65535}}) {
    const std::string number = std::to_string(index);
    const std::string input = "attempt to index non-existent input row: " + number;
    // The index is tested before the key.
    EXPECT_EQ(thrown<std::out_of_range>([&] { proxy->fetchRow(index, BaseRow(), 0); }), input);
    EXPECT_EQ(thrown<std::out_of_range>([&] { proxy->lower_bound(index, BaseRow(), 0); }), input);
    EXPECT_EQ(thrown<std::out_of_range>([&] { proxy->begin(index, 0); }), input);
    EXPECT_EQ(thrown<std::out_of_range>([&] { proxy->nextRow(index); }),
              "attempt to index non-existent table: " + number);
  }
  EXPECT_EQ(thrown<TvNullRow>([&] { proxy->fetchRow(1, BaseRow(), 0); }), "null row");
  EXPECT_EQ(thrown<TvNullRow>([&] { proxy->lower_bound(1, BaseRow(), 0); }), "null row");

  EXPECT_TRUE(proxy->nextRow(1).isNull()) << "before any begin";
  BaseRow key = rowOf(3, 0);
  key.rowTypeIs(999);
  const BaseRow shared = key;
  EXPECT_EQ(textOf(proxy->fetchRow(1, key, 256)), "3:30") << "the low 8 bits name the index";
  EXPECT_EQ(shared.rowType(), in.rowType()) << "written without a copy";
  EXPECT_TRUE(proxy->fetchRow(1, rowOf(2, 0), 0).isNull());
  EXPECT_THROW(proxy->fetchRow(1, key, 1), std::exception) << "no such index";

  proxy->begin(1, 0);
  EXPECT_EQ(textOf(proxy->nextRow(1)), "1:10");
  const BaseRow found = proxy->nextRow(1);
  EXPECT_EQ(textOf(found), "3:30");
  EXPECT_EQ(found.useCount(), 2) << "the table's row itself";
}

TEST_F(HostingTest, RangesEndAtTheProjectionOfTheirRow) {
  const OwnedContext context = assemble(head +
                                        "entry t1pru.wc\npushColumn<int32_t> 1, 8\npushCnst<int32_t> "
                                        "1\nadd<int32_t>\npopColumn<int32_t> 0, 8\nhalt\n");
  const BaseRow row = rowOf(5, 50);
  EXPECT_TRUE(prepDelRange(context.get(), 1, BaseRow(), true).isNull());
  EXPECT_EQ(prepDelRange(context.get(), 1, row, false).rowBuf(), row.rowBuf())
      << "no projection for the lower end";
  EXPECT_EQ(textOf(prepDelRange(context.get(), 1, row, true)), "6:0");
  EXPECT_EQ(context->getRow(1).rowBuf(), row.rowBuf());
}

}  // namespace
}  // namespace Tavro::TvRT
