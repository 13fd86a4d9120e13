#include "Tavro/TvRTProxy.h"
#include "Tavro/TvRTValueIter.h"
#include "Tavro/database.h"
#include "support.h"

namespace Tavro::TvRT {
namespace {

constexpr len_t pseudoRows = 5;

// Declares an output of 16 and an input of 24 bytes and ends.
const char* const twoTables =
    "bindTable 0, 16, 3, \"demo::out\", \"o\", \"s0\"\nbindTable 1, 24, 4, \"demo::in\", \"i\", "
    "\"s1\"\nend\n";

TEST(BindTest, TablesStandInTheirSlotsAndPseudoRowsBehindThem) {
  getTavroDb()->database().createTable("demo::in", {{"a", TypeUint64}, {"b", TypeUint64}});
  const OwnedContext context = assemble(twoTables);
  getTavroDb()->database().clear();

  EXPECT_EQ(
      context->outTable()->toString(),
      "TableBindInfo[index: 0, outIndex: 3, len: 16, name: demo::out, alias: o, sig: s0, rowType: 65535]");
  EXPECT_EQ(context->tableBindInfo(1)->toString(),
            "TableBindInfo[index: 1, outIndex: 4, len: 24, name: demo::in, alias: i, sig: s1, rowType: 1]");
  ASSERT_EQ(context->tbisSize(), 2U + pseudoRows);
  const char* const names[] = {"__keyRow__", "__deletedRow__", "__paramRow__", "__constRow__", "__tempRow__"};
  for (len_t i = 0; i < pseudoRows; ++i)
    EXPECT_EQ(context->tableBindInfo(static_cast<len_t>(2 + i))->toString(),
              "TableBindInfo[index: " + std::to_string(2 + i) + ", outIndex: 0, len: 24, name: __noNS__::" +
                  names[i] + ", alias: __keyRow__, sig: __noSig__, rowType: 65535]");
  EXPECT_EQ(context->tableBindInfo(7), nullptr);
  EXPECT_EQ((std::vector<len_t>{context->keyRowIndex(), context->deletedRowIndex(), context->paramRowIndex(),
                                context->constRowIndex(), context->tempRowIndex()}),
            (std::vector<len_t>{2, 3, 4, 5, 6}));
  EXPECT_EQ(context->tbisEnd() - context->tbisBegin(), 2);
  EXPECT_EQ((std::vector(context->inputTablesBegin(), context->inputTablesEnd())),
            (std::vector{context->tableBindInfo(1)}));
  const len_t lengths[] = {16, 24, 24, 24, 24, 24, 24};
  for (len_t slot = 0; slot < 7; ++slot) {
    EXPECT_EQ(context->getRow(slot).length(), lengths[slot]) << slot;
    EXPECT_EQ(context->getRow(slot).useCount(), 1) << slot;
  }
}

TEST(BindTest, SlotsComeInRisingOrderAndKeepTheirFirstTable) {
  const OwnedContext context = newContext();
  context->bindTable(2, 16, 0, "c", "", "");
  context->bindTable(0, 20, 0, "a", "", "");
  context->bindTable(2, 40, 9, "other", "", "");
  context->bindTable(65535, 60, 0, "beyond", "", "");
  EXPECT_EQ(context->tbisSize(), 3U);
  EXPECT_EQ(context->tableBindInfo(0), nullptr) << "a lower number after a higher one is dropped";
  EXPECT_EQ(context->outTable(), nullptr);
  EXPECT_EQ(context->tableBindInfo(2)->name, "c");
  EXPECT_TRUE(context->getRow(0).isNull());
  EXPECT_FALSE(context->getRow(2).isNull());
  context->endEncountered();
  EXPECT_EQ(context->getRow(context->keyRowIndex()).length(), 60) << "the longest that was ever bound";
  EXPECT_EQ(context->fixedLength(2), 16);
  EXPECT_THROW(context->fixedLength(0), std::out_of_range);
  EXPECT_EQ(thrown<std::out_of_range>([&] { context->clearRow(0); }), "attempt to index non-existent row");
}

TEST(RowSlotTest, RangesAreTested) {
  const OwnedContext context = assemble(twoTables);
  const std::string access = "Attempt to access row ourside of numberof tables used by query.";
  const std::string replace = "attempt to replace row outside of number of rows in query";
  BaseRow row(16);
  for (const len_t slot : {len_t{7}, len_t{65535}}) {
    EXPECT_EQ(thrown<std::out_of_range>([&] { context->getRow(slot); }), access);
    EXPECT_EQ(thrown<std::out_of_range>([&] { context->replaceRow(slot, row); }), replace);
    EXPECT_EQ(thrown<std::out_of_range>([&] { context->swapRow(slot, row); }), replace);
    EXPECT_EQ(thrown<std::out_of_range>([&] { context->clearRow(slot); }),
              "attempt to index non-existent row");
  }
}

TEST(RowSlotTest, HandlesAreSharedExchangedAndCleared) {
  const OwnedContext context = assemble(twoTables);
  BaseRow row(24);
  row.setColumn(8, 5, 24);
  context->replaceRow(1, row);
  EXPECT_EQ(context->getRow(1).rowBuf(), row.rowBuf());
  EXPECT_EQ(row.useCount(), 2);

  BaseRow other(24);
  const unsigned char* const bytes = other.rowBuf();
  context->swapRow(1, other);
  EXPECT_EQ(context->getRow(1).rowBuf(), bytes);
  EXPECT_EQ(other.rowBuf(), row.rowBuf());

  const BaseRow key = context->keyRow();
  EXPECT_EQ(key.rowBuf(), context->getRow(context->keyRowIndex()).rowBuf());
  EXPECT_EQ(context->outputRow().rowBuf(), context->getRow(0).rowBuf());

  context->tableBindInfo(1)->rowType = 0x12345;
  context->replaceRow(1, row);
  context->clearRow(1);
  EXPECT_EQ(row.useCount(), 2) << "the slot has let go of it";
  EXPECT_EQ(context->getRow(1).rowType(), 0x2345) << "16 bits of the type";
  EXPECT_EQ(context->getRow(1).length(), 24);
  int value = -1;
  context->getRow(1).getColumn(8, value);
  EXPECT_EQ(value, 0);
}

TEST(RowSlotTest, WithoutAHostRowInstructionsFindNoTable) {
  const OwnedContext context = assemble(twoTables);
  const std::string input = "attempt to index non-existent input row: 1";
  const std::string table = "attempt to index non-existent table: 1";
  EXPECT_EQ(thrown<std::out_of_range>([&] { context->fetchRow(1, 0); }), input);
  EXPECT_EQ(thrown<std::out_of_range>([&] { context->lower_bound(1, 0); }), input);
  EXPECT_EQ(thrown<std::out_of_range>([&] { context->begin(1, 0); }), input);
  EXPECT_EQ(thrown<std::out_of_range>([&] { context->nextRow(1); }), table);
  EXPECT_THROW(context->insertRow(1), std::out_of_range);
  EXPECT_THROW(context->deleteRow(1, 0), std::out_of_range);
  EXPECT_THROW(context->insertRow(7), std::out_of_range);
}

// ---- properties

TEST(PropertyTest, EntriesAreKeysAndValues) {
  const std::string unsupported =
      " is not a supported parameter.  Only isOneShot and isFilter are currently supported.\n";
  struct Case {
    const char* text;
    bool oneShot, filter;
    std::string errors;
  };
  const OwnedContext context = newContext();
  EXPECT_FALSE(context->oneShot());
  EXPECT_FALSE(context->filter());
  for (const Case& c : std::initializer_list<Case>{
           {"isOneShot=true", true, false, ""},
           {" ISONESHOT =\tTRUE ,isFilter= True", true, true, ""},
           {"isOneShot=yes,isFilter=true", false, true, ""},
           {"isOneShot=true,isOneShot=1", false, false, ""},
           {",,", false, false, ""},
           {"isFilter=true,isOneShot", false, true, "bad property entry: isOneShot\n"},
           {"isOneShot=", false, false, "bad property entry: isOneShot=\n"},
           {"isOneShot==true", true, false, ""},
           {" fast =true,isFilter=true", false, true, "fast" + unsupported},
           {"isOneShot=true=x", false, false, "bad property entry: isOneShot=true=x\n"},
       }) {
    EXPECT_EQ(errorOutputOf([&] { context->setProperties(c.text); }), c.errors) << c.text;
    EXPECT_EQ(context->oneShot(), c.oneShot) << c.text;
    EXPECT_EQ(context->filter(), c.filter) << c.text;
  }
}

// ---- value iterators

struct CountedIter : ValueIterBase {
  explicit CountedIter(int& alive) : alive_(alive) { ++alive_; }
  ~CountedIter() override { --alive_; }
  std::string signature() override { return ""; }
  int& alive_;
};

TEST(IteratorSlotTest, TheBoundLetsOneMoreThanTheCountThrough) {
  const OwnedContext context = newContext();
  const auto getFails = [&](len_t index) {
    EXPECT_EQ(thrown<std::runtime_error>([&] { context->getValueAryIter(index); }),
              "Tavro::TvRT::ValueIterBase* Tavro::TvRT::Context::getValueAryIter(Tavro::len_t) illegal value "
              "iterator index or null iterator: " +
                  std::to_string(index));
  };
  int alive = 0;
  for (const len_t count : {len_t{0}, len_t{2}}) {
    context->setIterCount(count);
    const auto last = static_cast<len_t>(count + 1);
    const auto beyond = static_cast<len_t>(count + 2);
    for (const len_t index : {len_t{0}, count, last, beyond, len_t{65535}}) getFails(index);
    context->setValueAryIter(last, new CountedIter(alive));
    auto* const iterator = new CountedIter(alive);
    context->setValueAryIter(last, iterator);
    EXPECT_EQ(alive, 1) << "the slot owned the one before";
    EXPECT_EQ(context->getValueAryIter(last), iterator);
    context->setValueAryIter(last, nullptr);
    EXPECT_EQ(alive, 0);

    auto mine = std::make_unique<CountedIter>(alive);
    EXPECT_EQ(thrown<std::runtime_error>([&] { context->setValueAryIter(beyond, mine.get()); }),
              "void Tavro::TvRT::Context::setValueAryIter(Tavro::len_t, Tavro::TvRT::ValueIterBase*) illegal "
              "value iterator index: " +
                  std::to_string(beyond));
    EXPECT_EQ(alive, 1) << "what is refused stays its caller's";
  }
  // Fewer slots, then more: what stood in between is gone.
  context->setValueAryIter(1, new CountedIter(alive));
  context->setIterCount(0);
  context->setIterCount(2);
  EXPECT_EQ(alive, 0);
  getFails(1);
}

}  // namespace
}  // namespace Tavro::TvRT
