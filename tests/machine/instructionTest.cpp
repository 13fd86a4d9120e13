#include <csignal>

#include "Tavro/TvRTBinOp.h"
#include "Tavro/TvRTOpCatalogue.h"
#include "Tavro/TvRTStackOps.h"
#include "support.h"

namespace Tavro::TvRT {
namespace {

// ---- dispatchers

TEST(DispatcherTest, TypesThatDoNotExistAreRefused) {
  struct Dispatcher {
    const char* signature;
    void (*install)(Context&, TavroTypes);
  };
  const Dispatcher dispatchers[] = {
      {"installPushCnstOp(Tavro::TvRT::Context&, Tavro::TavroTypes, const string&)",
       [](Context& c, TavroTypes type) { StackOps::installPushCnstOp(c, type, "1"); }},
      {"installPushParamOp(Tavro::TvRT::Context&, Tavro::TavroTypes, Tavro::len_t)",
       [](Context& c, TavroTypes type) { StackOps::installPushParamOp(c, type, 8); }},
      {"installPushColumnOp(Tavro::TvRT::Context&, Tavro::TavroTypes, Tavro::len_t, Tavro::len_t)",
       [](Context& c, TavroTypes type) { StackOps::installPushColumnOp(c, type, 1, 8); }},
      {"installPopColumnOp(Tavro::TvRT::Context&, Tavro::TavroTypes, Tavro::len_t, Tavro::len_t)",
       [](Context& c, TavroTypes type) { StackOps::installPopColumnOp(c, type, 1, 8); }},
      {"installDiscardOp(Tavro::TvRT::Context&, Tavro::TavroTypes)", StackOps::installDiscardOp},
      {"installSwapOp(Tavro::TvRT::Context&, Tavro::TavroTypes)", StackOps::installSwapOp},
  };
  for (const Dispatcher& dispatcher : dispatchers)
    for (const int code : {12, 19, 255, -1}) {
      const OwnedContext context = newContext();
      EXPECT_EQ(
          thrown<std::runtime_error>([&] { dispatcher.install(*context, static_cast<TavroTypes>(code)); }),
          "static void Tavro::TvRT::StackOps::" + std::string(dispatcher.signature) + ": Invalid Operation");
      EXPECT_EQ(context->maxLoc(), 0);
    }
}

TEST(TypeTest, NamesAndCodesOfNativeTypes) {
  const auto type = []<typename T>(const T&) {
    return std::pair(std::string(TvRTTypename<T>()), int{TvRTTypeValue<T>()});
  };
  using Named = std::pair<std::string, int>;
  EXPECT_EQ(type(static_cast<unsigned char>(0)), Named("uint8_t", 0));
  EXPECT_EQ(type(std::string()), Named("string_t", 11));
  EXPECT_EQ(type(StringValueReference()), Named("StringValueReference", 11));
  EXPECT_EQ(type(IpGenPrefixReference()), Named("IpGenPrefixReference", 18));
  const Lines lines = traceOf({{"TvRTOp", 9}}, [] { TvRTTypeValue<Ip6Addr>(); });
  ASSERT_EQ(lines.size(), 1U);
  const std::string text =
      ": Tavro::TavroTypes Tavro::TvRT::TvRTTypeValue() [with T = Tavro::Ip6Addr] entered";
  EXPECT_NE(lines[0].find(text), std::string::npos) << lines[0];
}

// ---- row instructions

TEST(RowInstructionTest, TracesBeforeItFailsUnlessItReportsAResult) {
  const auto run = [](const std::string& statement) {
    const OwnedContext context = assemble(statement + "\nhalt\n");
    return traceOf({{"TvRtOp", 8}}, [&] { EXPECT_THROW(context->execute(), std::out_of_range); });
  };
  const std::string place = "TvRtOp:8 ../src-includes/runtimeOperators/Tavro/TvRTRowOps.h op: ";
  EXPECT_EQ(run("clearRow 9"), Lines{place + "ClearRowOp( 9 )"});
  EXPECT_EQ(run("begin 9"), Lines{place + "BeginOp( 9 )"});
  EXPECT_EQ(run("lowerBoundIndexed 9, 1"), Lines{place + "LowerBoundIndexedOp( 9, 1 )"});
  EXPECT_EQ(run("deleteRowIndexed 9, 1"), Lines{place + "DeleteRowIndexedOp( 9, 1 )"});
  EXPECT_EQ(run("insertRow 9"), Lines{place + "InsertRowOp( 9 )"});
  for (const char* statement : {"fetchRow 9", "fetchRowIndexed 9, 1", "nextRow 9", "isNullRow 9"})
    EXPECT_EQ(run(statement), Lines{}) << statement;
}

// ---- binary operators

// By their catalogue name.
bool dispatch(Context& context, const std::string& name, int type) {
  for (const OpCatalogueRow& row : opCatalogue)
    if (row.name == name) return BinOpDispatch::dispatchBinOp(row.cat.opCode, type, context);
  ADD_FAILURE() << name;
  return false;
}

TEST(BinOpTest, NoopTakesAPairAndPushesNothing) {
  const std::pair<int, std::size_t> widths[] = {{3, 18}, {8, 10}, {10, 4}, {11, 2 * (3 + sizeof(void*))}};
  for (const auto& [type, width] : widths) {
    const OwnedContext context = newContext();
    push(*context, Ip6Addr());
    push(*context, Ip6Addr());
    EXPECT_FALSE(dispatch(*context, "noop", type));
    EXPECT_EQ(context->depth(), 34 - width) << type;
  }
}

TEST(BinOpDeathTest, IntegerDivisionByZeroTraps) {
  for (const int type : {3, 7}) {
    const OwnedContext context = newContext();
    push(*context, 5LL);
    push(*context, 0LL);
#ifdef __SANITIZE_ADDRESS__
    // The sanitizer catches the trap and reports it.
    EXPECT_DEATH(dispatch(*context, "div", type), "FPE");
#else
    EXPECT_EXIT(dispatch(*context, "div", type), testing::KilledBySignal(SIGFPE), "");
#endif
  }
}

// A prebuilt index is probed in place of a scratch one, by the side that the counts choose.
TEST(ArrayTest, PrebuiltIndexIsUsedWhereThereIsOne) {
  using Array = ArrayReference<unsigned char>;
  const Array::Index nine{{9, 0}};
  const unsigned char payloads[][4] = {{1, 0, 1}, {2, 0, 2, 9}, {2, 0, 1, 5}};
  const auto with = [](const Array& array, const Array::Index* index) {
    return Array(array.payload(), array.length(), index);
  };
  const Array small(payloads[0], 3);
  const Array large(payloads[1], 4);
  const Array both(payloads[2], 4);
  EXPECT_FALSE(large.intersects(small));
  EXPECT_TRUE(large.intersects(with(small, &nine))) << "the other's index, probed by this";
  EXPECT_FALSE(with(large, &nine).intersects(small)) << "this one's index, probed by the other";
  EXPECT_FALSE(with(small, &nine).intersects(both));
  EXPECT_FALSE(small.intersects(with(both, &nine))) << "the other's index, probed by this";
  EXPECT_TRUE(small.intersects(both));
  EXPECT_TRUE(with(small, &nine).intersects(with(large, &nine))) << "this one's index, probed by the other";
  EXPECT_TRUE(large.contains(with(small, &nine)));
}

}  // namespace
}  // namespace Tavro::TvRT
