#include "Tavro/TvRTCtrlOps.h"
#include "support.h"

namespace Tavro::TvRT {
namespace {

// A program of one probe at label 1 and a halt behind it.
OwnedContext probeProgram() {
  OwnedContext context = assemble("entry probe\n");
  Probe::install(*context);
  haltOp().install(*context);
  return context;
}

void returns(int result) {
  Probe::work = [result](Context&) { return static_cast<OpResult>(result); };
}

TEST(RunTest, NeverLoadedContextDoesNotRunAtALabel) {
  const OwnedContext context = newContext();
  EXPECT_EQ(thrown<TvTableFull>([&] { context->execute(1); }), "Context not ready, state = 0");
  EXPECT_EQ(context->runState(), Context::Unloaded);
}

TEST(RunTest, SuspendedRunRepeatsItsInstruction) {
  const OwnedContext context = probeProgram();
  returns(OpSuspend);
  EXPECT_EQ(context->execute(1), Context::Suspended);
  EXPECT_EQ(context->runState(), Context::Suspended);
  EXPECT_EQ(context->istream().programCounter(), 0);
  EXPECT_EQ(thrown<TvTableFull>([&] { context->execute(1); }), "Context not ready, state = 3");
  EXPECT_EQ(context->resume(), Context::Suspended);
  int runs = 0;
  Probe::work = [&](Context& running) {
    EXPECT_EQ(running.runState(), Context::Ready) << "a resumed run is not suspended any more";
    ++runs;
    return OpOk;
  };
  EXPECT_EQ(context->resume(), Context::Ready);
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(thrown<TvTableFull>([&] { context->resume(); }), "Context not suspended, state = 1");
  EXPECT_EQ(context->runState(), Context::Ready);
}

const std::string failureTrace =
    "Context:6 TvRTContext execute: Tavro::TvRT::Context::ContextState Tavro::TvRT::Context::execute() "
    "instruction failed at ";

TEST(RunTest, FailedRunGoesOnBehindTheSlotOnResume) {
  const OwnedContext context = probeProgram();
  returns(OpFailed);
  EXPECT_EQ(traceOf({{"Context", 6}}, [&] { EXPECT_EQ(context->execute(1), Context::Failed); }),
            Lines{failureTrace + "0:1"});
  EXPECT_EQ(context->istream().programCounter(), 4);
  EXPECT_EQ(thrown<TvTableFull>([&] { context->execute(1); }), "Context not ready, state = 2");
  EXPECT_EQ(traceOf({{"Context", 6}}, [&] { EXPECT_EQ(context->resume(), Context::Ready); }),
            Lines{"Context:6 TvRTContext resume: Resuming @ 4"})
      << "what stands behind the slot is the halt";
}

TEST(RunTest, ResultsThatNoInstructionHasAreRaised) {
  for (const int result : {3, -1}) {
    const OwnedContext context = probeProgram();
    returns(result);
    const auto run = [&] {
      EXPECT_EQ(thrown<TvOutOfRange>([&] { context->execute(1); }),
                "Unexpected result" + std::to_string(result));
    };
    EXPECT_EQ(traceOf({{"Context", 6}}, run), Lines{failureTrace + "0:" + std::to_string(result)});
    EXPECT_EQ(context->runState(), Context::Ready);
  }
}

TEST(RunTest, TracesALabelWithoutAName) {
  const OwnedContext context = assemble("label a\nhalt\n");
  EXPECT_EQ(traceOf({{"Context", 8}}, [&] { context->execute(3); }),
            Lines{"Context:8 TvRTContext execute: Entry -> ???"});
}

TEST(RunTest, ExceptionLeavesStackAndStateAsTheyAre) {
  OwnedContext context = assemble("entry main\ncall inner\npushCnst<uint8_t> 7\nhalt\nlabel inner\n");
  const len_t inner = context->maxLoc();
  Probe::install(*context);
  returnOp().install(*context);
  Probe::work = [](Context& running) -> OpResult {
    push(running, 5LL);
    throw std::runtime_error("out of a handler");
  };
  for (unsigned run = 1; run <= 2; ++run) {
    EXPECT_EQ(thrown<std::runtime_error>([&] { context->execute(1); }), "out of a handler");
    EXPECT_EQ(context->runState(), Context::Ready);
    EXPECT_EQ(context->istream().programCounter(), inner + 4);
    EXPECT_EQ(context->depth(), 9 * run);
  }
  // The return of the next run goes behind the call of the one before.
  context->istream().programCounterIs(inner);
  returns(OpOk);
  EXPECT_EQ(context->execute(), Context::Ready);
  const unsigned long long sum = context->stackR().pop<unsigned long long>().value;
  EXPECT_EQ(sum, 7U);
}

TEST(RunTest, ClearForgetsTheProgramOrJustThePlace) {
  const OwnedContext context = assemble("entry a\npushCnst<bool> T\nhalt\nbranch a\n");
  context->execute(1);
  const len_t length = context->maxLoc();
  context->clear(false);
  EXPECT_TRUE(context->isEmpty());
  EXPECT_EQ(context->istream().programCounter(), 0);
  EXPECT_EQ(context->maxLoc(), length);
  EXPECT_EQ(context->translateEntry("a"), 1);
  EXPECT_EQ(context->getStringOID("a"), 1U);

  context->clear();
  EXPECT_EQ(context->maxLoc(), 0);
  EXPECT_EQ(context->translateEntry("a"), 0);
  EXPECT_EQ(context->getStringOID("a"), 0U);
  EXPECT_EQ(context->entryName(1), "a") << "the names of old labels serve traces on";
  EXPECT_TRUE(context->gotoOp(1)) << "the label table stays";
  EXPECT_EQ(context->setEntryPoint("b"), 1);
  EXPECT_EQ(context->addString("b"), 2U) << "OIDs do not begin anew";
}

TEST(RunTest, RowEntriesFollowTheLatestLabelOfTheirName) {
  const OwnedContext context = assemble("entry t1row.wc\nhalt\nentry t2rdy.wc\n");
  EXPECT_EQ(context->onRowWC(1), 1);
  EXPECT_EQ(context->onRowWC(2), 0);
  EXPECT_EQ(context->onReadyWC(2), 2);
  EXPECT_EQ(context->onDelWC(2), 0);
  EXPECT_EQ(context->setEntryPoint("t1row.wc"), 3);
  context->setEntryPoint("t2row.wc");
  EXPECT_EQ(context->onRowWC(1), 3);
  EXPECT_EQ(context->onRowWC(2), 4);
  for (const char* name : {"t7prl.wc", "t7pru.wc", "t65535del.wc"}) context->setEntryPoint(name);
  EXPECT_EQ(context->projRowWC(7, false), 5);
  EXPECT_EQ(context->projRowWC(7, true), 6);
  EXPECT_EQ(context->onDelWC(65535), 7);
  context->clear();
  EXPECT_EQ(context->onRowWC(1), 0);
}

TEST(StringTableTest, NumbersTextsInOrderOfAppearanceAndNeverAgain) {
  TvRTStringTable table;
  EXPECT_EQ(table.add("a"), 1U);
  EXPECT_EQ(table.add("b"), 2U);
  EXPECT_EQ(table.add("a"), 1U);
  EXPECT_EQ(table.getOID(""), 0U);
  EXPECT_EQ(table.add(""), 3U) << "asking added nothing";
  EXPECT_EQ(table.getOID(""), 3U);
  EXPECT_EQ(table.fetch(2), "b");
  EXPECT_EQ(table.fetch(0), "");
  EXPECT_EQ(thrown<std::domain_error>([&] { table.fetch(4); }), "string table lookup failed");

  table.clear();
  EXPECT_EQ(table.getOID("a"), 0U);
  EXPECT_EQ(thrown<std::domain_error>([&] { table.fetch(1); }), "string table lookup failed");
  EXPECT_EQ(table.add("b"), 4U);
  EXPECT_EQ(table.fetch(4), "b");
}

}  // namespace
}  // namespace Tavro::TvRT
