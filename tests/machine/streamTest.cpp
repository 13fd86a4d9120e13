#include <unistd.h>

#include <set>

#include "Tavro/TvRTCtrlOps.h"
#include "Tavro/TvRTHandlers.h"
#include "Tavro/TvRTIStream.h"
#include "support.h"

namespace Tavro::TvRT {
namespace {

const std::vector<unsigned char> filler(70000, 0xAB);

len_t appendBytes(IStream& stream, unsigned count) {
  return stream.append(static_cast<len_t>(count), filler.data());
}

TEST(IStreamTest, GrowsByItsStepOrByWhatIsNeededAndAStep) {
  struct Growth {
    unsigned present, added, capacity;
  };
  for (const Growth& growth :
       {Growth{0, 0, 512}, Growth{0, 512, 512}, Growth{510, 2, 512}, Growth{510, 3, 1024},
        Growth{510, 4, 1024}, Growth{510, 514, 1024}, Growth{510, 515, 1537}, Growth{510, 1600, 2622}}) {
    IStream stream;
    appendBytes(stream, growth.present);
    EXPECT_EQ(appendBytes(stream, growth.added), growth.present);
    EXPECT_EQ(stream.maxLoc(), growth.present + growth.added);
    EXPECT_EQ(stream.capacityInBytes(), growth.capacity) << growth.present << "+" << growth.added;
    for (unsigned i = 0; i < 8; ++i)
      EXPECT_EQ(*(stream.at(static_cast<len_t>(growth.capacity)) + i), 0) << "behind the capacity";
  }
}

TEST(IStreamTest, LengthWrapsAtSixteenBits) {
  IStream stream;
  appendBytes(stream, 65530);
  EXPECT_EQ(appendBytes(stream, 10), 65530);
  EXPECT_EQ(stream.maxLoc(), 4);
  EXPECT_EQ(appendBytes(stream, 1), 4);
}

TEST(IStreamTest, WildOffsetStandsForTheStart) {
  IStream stream;
  appendBytes(stream, 3);
  EXPECT_EQ(stream.at(512), stream.at(0) + 512);
  EXPECT_EQ(stream.at(513), stream.at(0));
  EXPECT_EQ(stream.at(65535), stream.at(0));
}

TEST(IStreamTest, StepNeedsAWholeHandlerSlotBehindIt) {
  struct Step {
    unsigned pc, width, after;
  };
  for (const Step& step : {Step{0, 0, 0}, Step{10, 26, 36}, Step{36, 0, 36}, Step{10, 27, 10},
                           Step{37, 0, 37}, Step{40, 4, 40}, Step{2, 65534, 2}, Step{2, 65535, 2}}) {
    IStream stream;
    appendBytes(stream, 40);
    stream.programCounterIs(static_cast<len_t>(step.pc));
    const std::string output = outputOf([&] { stream.stepPC(static_cast<len_t>(step.width)); });
    EXPECT_EQ(stream.programCounter(), step.after) << step.pc << "+" << step.width;
    const bool stepped = step.pc + step.width + 4 <= 40;
    EXPECT_EQ(output, stepped ? "" : "bad stepPC parameter.  Too large.\n") << step.pc << "+" << step.width;
  }
}

TEST(IStreamTest, LabelTableDoublesWhenItIsFull) {
  const OwnedContext context = newContext();
  const auto& labels = context->istream().labelTable();
  EXPECT_FALSE(context->gotoOp(0));
  std::vector<std::size_t> sizes;
  for (len_t label = 1; label <= 23; ++label) {
    EXPECT_EQ(context->setEntryPoint("l" + std::to_string(label)), label);
    if (sizes.empty() || sizes.back() != labels.size()) sizes.push_back(labels.size());
    context->append(3, filler.data());
  }
  EXPECT_EQ(sizes, (std::vector<std::size_t>{4, 10, 22, 46}));
  for (len_t label = 1; label <= 23; ++label) EXPECT_EQ(labels[label], 3 * (label - 1));
  EXPECT_EQ(labels[0], 0);
  EXPECT_EQ(labels[24], 0);

  EXPECT_TRUE(context->gotoOp(23));
  EXPECT_EQ(context->istream().programCounter(), 66);
  EXPECT_FALSE(context->gotoOp(46));
  EXPECT_EQ(context->istream().programCounter(), 66);
  EXPECT_TRUE(context->gotoOp(45)) << "in the table, though never given";
  EXPECT_EQ(context->istream().programCounter(), 0);
}

TEST(IStreamTest, LabelsInARowShareTheirOffsetAndTheNameKeepsTheLater) {
  const OwnedContext context = assemble("halt\nlabel a\nlabel b\nhalt\nlabel a\n");
  EXPECT_EQ(context->istream().labelTable()[1], 8);
  EXPECT_EQ(context->istream().labelTable()[2], 8);
  EXPECT_EQ(context->istream().labelTable()[3], 16);
  EXPECT_EQ(context->translateEntry("a"), 3);
  EXPECT_EQ(context->entryName(1), "a");
  EXPECT_EQ(context->translateEntry("c"), 0);
  EXPECT_EQ(context->translateEntry("c"), 0) << "a failed lookup enters nothing";
}

TEST(HandlerTableTest, GivesEveryHandlerOneNumber) {
  const OwnedContext context = newContext();
  Probe::install(*context);
  Probe::install(*context);
  haltOp().install(*context);
  EXPECT_EQ(listing(*context), (Lines{"0 Probe", "4 Probe", "8 haltOp 00000000"}));
  const HandlerNumber number = HandlerTable::numberOf(&Probe::op, &describe<Probe>);
  EXPECT_NE(number, 0U);
  EXPECT_EQ(HandlerTable::at(number), &Probe::op);
  EXPECT_EQ(HandlerTable::describe(0), nullptr);
  EXPECT_EQ(HandlerTable::describe(HandlerTable::capacity - 1), nullptr);
  EXPECT_EQ(HandlerTable::at(HandlerTable::capacity), HandlerTable::at(0));
  EXPECT_EQ(HandlerTable::at(~HandlerNumber{0}), HandlerTable::at(0));
}

// Every family in its byte image: slot of 4 bytes, then the operands, little-endian and packed.
TEST(ImageTest, InstructionsAreTheirOperandsPacked) {
  const OwnedContext context = assemble(
      "label l\n"
      "branch l\ncondBranch m\ninvCondBranch l\ncompareBranch x, l\ncall m\nreturn\nhalt\n"
      "fetchRow 258\nfetchRowIndexed 1, 515\nclearRow 3\nbegin 4\nlowerBound 5\nlowerBoundIndexed 6, "
      "7\nnextRow 8\n"
      "insertRow 9\ndeleteRow 10\ndeleteRowIndexed 11, 12\nisNullRow 65535\n"
      "pushCnst<uint8_t> 255\npushCnst<int16_t> \"-2\"\npushCnst<uint32_t> 0x01020304\npushCnst<int64_t> "
      "\"-2\"\n"
      "pushCnst<float> \"1.5\"\npushCnst<double> \"-2\"\npushCnst<bool> T\npushCnst<IpAddr> \"1.2.3.4\"\n"
      "pushCnst<Ip6Addr> \"2001:db8::1\"\npushParam<uint16_t> 8\npushColumn<int8_t> 1, 9\npopColumn<bool> 0, "
      "258\n"
      "discard<string_t>\nswap<uint8_t>\nnswap<bool,int8_t>\nnswap<double,bool>\nadd<int8_t>\neq<IpAddr>"
      "\nboolOr\n"
      "noop\ncontains<uint8_t>\n");
  const Lines expected{
      "0 branchOp 01000000ffff0000",
      "12 condBranchOp 02000000ffff0000",
      "24 invCondBranchOp 01000000ffff0000",
      // The second label's name is interned first.
      "36 compareBranchOp 03000000ffff000001000000ffff0000",
      "56 callOp 02000000ffff0000",
      "68 returnOp 00000000",
      "76 haltOp 00000000",
      "84 FetchRowOp 0201",
      "90 FetchRowIndexedOp 01000302",
      "98 ClearRowOp 0300",
      "104 BeginOp 0400",
      "110 LowerBoundOp 0500",
      "116 LowerBoundIndexedOp 06000700",
      "124 NextRowOp 0800",
      "130 InsertRowOp 0900",
      "136 DeleteRowOp 0a00",
      "142 DeleteRowIndexedOp 0b000c00",
      "150 IsNullRowOp ffff",
      "156 PushCnstOp<uint8_t,uint64_t> ff",
      "161 PushCnstOp<int16_t,int64_t> feff",
      "167 PushCnstOp<uint32_t,uint64_t> 04030201",
      "175 PushCnstOp<int64_t,int64_t> feffffffffffffff",
      "187 PushCnstOp<float,double> 0000c03f",
      "195 PushCnstOp<double,double> 00000000000000c0",
      "207 PushCnstOp<bool,bool> 01",
      "212 PushCnstOp<IpAddr,IpAddr> 01020304",
      "220 PushCnstOp<Ip6Addr,Ip6Addr> 20010db8000000000000000000000001",
      "240 PushParamOp<uint16_t,uint64_t> 0800",
      "246 PushColumnOp<int8_t,int64_t> 01000900",
      "254 PopColumnOp<bool,bool> 00000201",
      "262 DiscardOp<StringValueReference>",
      "266 SwapOp<uint8_t>",
      "270 NSwapOp<uint64_t,bool>",
      "274 NSwapOp<bool,uint64_t>",
      "278 tv_plusOperation<int64_t>",
      "282 tv_eqOperation<IpAddr>",
      "286 tv_boolOrOperation<bool>",
      "290 tv_containsOperation<uint8_t,uint64_t>",
  };
  EXPECT_EQ(listing(*context), expected);
  // References are as wide as their pointers make them.
  for (const auto& [type, width] :
       {std::pair{"string_t", 2U}, std::pair{"IpGenAddr", 1U}, std::pair{"IpGenPrefix", 2U}})
    EXPECT_EQ(assemble("pushCnst<" + std::string(type) + "> \"\"")->maxLoc(), 4 + sizeof(void*) + width)
        << type;
}

// ---- labels

TEST(LabelTest, ResolvingChangesTheTwoBytesOfTheLabelNumber) {
  const OwnedContext context = assemble("branch on\nhalt\nlabel on\nbranch off\nhalt\nlabel off\nhalt\n");
  const len_t length = context->maxLoc();
  const auto image = [&] {
    return std::string(reinterpret_cast<const char*>(context->istream().at(0)), length);
  };
  const std::string before = image();
  EXPECT_EQ(context->execute(), Context::Ready);
  std::string expected = before;
  expected.replace(8, 2, std::string("\1\0", 2)).replace(28, 2, std::string("\2\0", 2));
  EXPECT_EQ(image(), expected);
  context->istream().programCounterIs(0);
  EXPECT_EQ(context->execute(), Context::Ready);
  EXPECT_EQ(image(), expected);
}

TEST(LabelTest, OnlyThePathThatIsTakenIsResolved) {
  const OwnedContext context = assemble("label a\nlabel b\ncompareBranch a, b\nhalt\n");
  const auto operands = [&] { return listing(*context)[0].substr(std::string("0 compareBranchOp ").size()); };
  const std::string unresolved = operands();
  struct Value {
    int value;
    const char* less;
    const char* greater;
  };
  for (const Value& value : {Value{0, "ffff", "ffff"}, Value{2, "ffff", "ffff"}, Value{-2, "ffff", "ffff"}}) {
    context->istream().programCounterIs(0);
    push(*context, static_cast<signed char>(value.value));
    EXPECT_EQ(context->execute(), Context::Ready);
    EXPECT_EQ(operands(), unresolved) << value.value;
  }
  // -1 and 1 come back to the start, where a further value has to wait.
  context->istream().programCounterIs(0);
  push(*context, static_cast<signed char>(0));
  push(*context, static_cast<signed char>(1));
  context->execute();
  EXPECT_EQ(operands(), "02000000ffff00000100000002000000");
  context->istream().programCounterIs(0);
  push(*context, static_cast<signed char>(0));
  push(*context, static_cast<signed char>(-1));
  context->execute();
  EXPECT_EQ(operands(), "02000000010000000100000002000000");
  EXPECT_TRUE(context->isEmpty());
}

TEST(LabelTest, UnknownNameIsTheStartOfTheStreamFromThenOn) {
  const OwnedContext context = newContext();
  context->setEntryPoint("any");
  int runs = 0;
  Probe::work = [&](Context& running) {
    if (++runs == 3) running.halt();
    return OpOk;
  };
  Probe::install(*context);
  branchOp{{.oid = context->addString("nowhere")}}.install(*context);
  EXPECT_EQ(context->execute(), Context::Ready);
  EXPECT_EQ(runs, 3);
  EXPECT_EQ(listing(*context)[1], "4 branchOp 0100000000000000");
  EXPECT_EQ(context->translateEntry("nowhere"), 0);
}

TEST(LabelTest, NoBranchIsHonouredAsItStands) {
  const OwnedContext context = newContext();
  compareBranchOp{{.oid = 0, .label = noBranch}, {.oid = 0, .label = noBranch}}.install(*context);
  haltOp().install(*context);
  for (const int value : {-1, 1}) {
    context->istream().programCounterIs(0);
    push(*context, static_cast<signed char>(value));
    EXPECT_EQ(context->execute(), Context::Ready);
  }
}

// Standard output of a process that ends, where a death test can read it.
template <typename Action>
void withOutputOnError(const Action& action) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  action();
}

TEST(LabelDeathTest, NumbersBeyondTheTableEndTheProcess) {
  const LabelOperand bad{.oid = 0, .label = 77};
  const auto dies = [&](const auto& instruction, const std::function<void(Context&)>& prepare,
                        const char* text) {
    const OwnedContext context = newContext();
    context->setEntryPoint("a");
    instruction.install(*context);
    haltOp().install(*context);
    prepare(*context);
    EXPECT_EXIT(withOutputOnError([&] { context->execute(); }), testing::ExitedWithCode(1), text);
  };
  const auto nothing = [](Context&) {};
  dies(branchOp{bad}, nothing, "^bad branch label index: 77\n$");
  dies(
      invCondBranchOp{bad}, [](Context& c) { push(c, false); }, "^bad branch label index: 77\n$");
  dies(
      compareBranchOp{bad, bad}, [](Context& c) { push(c, static_cast<signed char>(-1)); },
      "^bad branch label index: 77\n$");
  dies(callOp{bad}, nothing, "^bad call target at istream offset 77\n$");

  const OwnedContext context = newContext();
  condBranchOp{bad}.install(*context);
  haltOp().install(*context);
  push(*context, true);
  EXPECT_EQ(context->execute(), Context::Ready) << "a true condition without a label counts as false";
}

TEST(LabelDeathTest, StartsThatDoNotExistEndTheProcess) {
  const OwnedContext context = assemble("halt\n");
  EXPECT_EXIT(context->execute(1), testing::ExitedWithCode(1), "^unknown starting point: 1\n$");
  EXPECT_EXIT(context->toEntry("init"), testing::ExitedWithCode(1), "^unknown entry point: init\n$");

  const OwnedContext labelled = assemble("halt\nentry here\nhalt\n");
  labelled->toEntry("here");
  EXPECT_EQ(labelled->istream().programCounter(), 8);
  labelled->toEntry("nowhere");
  EXPECT_EQ(labelled->istream().programCounter(), 0);
}

TEST(LabelDeathTest, NullThreeWayResultIsAsserted) {
  const OwnedContext context = assemble("label a\ncompareBranch a, a\nhalt\n");
  push(*context, static_cast<signed char>(0), true);
  EXPECT_EXIT(context->execute(), testing::KilledBySignal(SIGABRT),
              "!cond.isNull\\(\\).*static Tavro::TvRT::OpResult Tavro::TvRT::compareBranchOp::op\\("
              "Tavro::TvRT::Context&\\)");
}

// ---- calls

TEST(CallTest, ReturnsBehindTheCallHoweverDeep) {
  const OwnedContext context = assemble(
      "pushCnst<uint8_t> 1\ncall twice\npushCnst<uint8_t> 4\nhalt\n"
      "label twice\ncall once\ncall once\npushCnst<uint8_t> 3\nreturn\n"
      "label once\npushCnst<uint8_t> 2\nreturn\nhalt\n");
  EXPECT_EQ(context->execute(), Context::Ready);
  std::string values;
  while (!context->isEmpty()) values += popText<unsigned long long>(*context);
  EXPECT_EQ(values, "43221");
}

TEST(CallTest, RecursionHasNoLimitOfItsOwn) {
  const OwnedContext context = newContext();
  context->setEntryPoint("again");
  int depth = 0;
  Probe::work = [&](Context& running) {
    if (++depth == 20000) running.halt();
    return OpOk;
  };
  Probe::install(*context);
  callOp{{.oid = context->addString("again")}}.install(*context);
  returnOp().install(*context);
  EXPECT_EQ(context->execute(), Context::Ready);
  // Each of the calls that are still open comes back to the return behind it, the last of them ends the run.
  context->istream().programCounterIs(16);
  EXPECT_EQ(context->execute(), Context::Ready);
  EXPECT_EQ(context->istream().programCounter(), 20) << "a return with nowhere to go leaves pc";
}

TEST(CallTest, CallAtTheEndOfTheStreamReturnsIntoItsOwnOperands) {
  const OwnedContext context = assemble("label a\nreturn\n");
  callOp{{.oid = ~0U, .label = 1}}.install(*context);
  context->istream().programCounterIs(8);
  const std::string output = outputOf([&] {
    EXPECT_EQ(thrown<TvOutOfRange>([&] { context->execute(); }), "no instruction at istream offset 12");
  });
  EXPECT_EQ(output, "bad stepPC parameter.  Too large.\n");
}

TEST(CallDeathTest, ReturnToAnOffsetBehindTheEndEndsTheProcess) {
  const OwnedContext context = assemble("label a\nreturn\n");
  context->istream().programCounterIs(5);
  context->call(1);
  EXPECT_EXIT(withOutputOnError([&] { context->execute(); }), testing::ExitedWithCode(1),
              "^bad goto target; iStream Max: 8 target: 5\nbad return target at istream offset: 5\n$");
  const OwnedContext fits = assemble("label a\nreturn\n");
  fits->istream().programCounterIs(4);
  fits->call(1);
  fits->returnOp();
  EXPECT_EQ(fits->istream().programCounter(), 4);
}

// ---- runs led astray

TEST(StrayTest, OffsetsWithoutAnInstructionAreReported) {
  struct Stray {
    const char* program;
    unsigned pc;
    const char* message;
  };
  for (const Stray& stray :
       {Stray{"name\n", 0, "0"}, Stray{"halt\n", 4, "4"}, Stray{"halt\n", 8, "8"},
        Stray{"halt\n", 512, "512"}, Stray{"swap<bool>\n", 4, "4"}, Stray{"branch 0xffffffff\n", 8, "8"}}) {
    const OwnedContext context = assemble(stray.program);
    context->istream().programCounterIs(static_cast<len_t>(stray.pc));
    EXPECT_EQ(thrown<TvOutOfRange>([&] { context->execute(); }),
              "no instruction at istream offset " + std::string(stray.message));
    EXPECT_EQ(context->istream().programCounter(), stray.pc + 4);
  }
  // Behind the capacity the first instruction is what runs.
  const OwnedContext context = assemble("halt\n");
  context->istream().programCounterIs(513);
  EXPECT_EQ(context->execute(), Context::Ready);
}

TEST(StrayTest, RefusedStepTakesOperandsForAnInstruction) {
  const OwnedContext context = assemble("pushCnst<uint64_t> 0\n");
  const std::string output = outputOf([&] {
    EXPECT_EQ(thrown<TvOutOfRange>([&] { context->execute(); }), "no instruction at istream offset 4");
  });
  EXPECT_EQ(output, "bad stepPC parameter.  Too large.\n");
  EXPECT_EQ(context->depth(), 9U) << "the constant was pushed";
}

TEST(StrayTest, AFullBufferEndsInTheZerosBehindIt) {
  std::string program;
  for (int i = 0; i < 128; ++i) program += "swap<bool>\n";
  const OwnedContext context = assemble(program);
  EXPECT_EQ(context->maxLoc(), 512);
  EXPECT_EQ(context->istream().capacityInBytes(), 512U);
  push(*context, true);
  push(*context, false);
  EXPECT_EQ(thrown<TvOutOfRange>([&] { context->execute(); }), "no instruction at istream offset 512");
  EXPECT_EQ(popText<bool>(*context), "false");
}

}  // namespace
}  // namespace Tavro::TvRT
