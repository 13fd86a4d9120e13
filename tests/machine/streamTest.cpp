#include <unistd.h>

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

TEST(IStreamTest, LengthWrapsAtSixteenBitsAndAWildOffsetStandsForTheStart) {
  IStream stream;
  appendBytes(stream, 3);
  EXPECT_EQ(stream.at(512), stream.at(0) + 512);
  EXPECT_EQ(stream.at(513), stream.at(0));
  EXPECT_EQ(stream.at(65535), stream.at(0));
  appendBytes(stream, 65527);
  EXPECT_EQ(appendBytes(stream, 10), 65530);
  EXPECT_EQ(appendBytes(stream, 1), 4);
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

TEST(HandlerTableTest, GivesEveryHandlerOneNumber) {
  const OwnedContext context = newContext();
  Probe::install(*context);
  Probe::install(*context);
  EXPECT_EQ(listing(*context), (Lines{"0 Probe", "4 Probe"}));
  const HandlerNumber number = HandlerTable::numberOf(&Probe::op, &describe<Probe>);
  EXPECT_EQ(HandlerTable::at(number), &Probe::op);
  constexpr HandlerNumber last = HandlerTable::base + HandlerTable::capacity - 1;
  for (const HandlerNumber unused :
       {HandlerNumber{0}, HandlerTable::base, last, last + 1, ~HandlerNumber{0}}) {
    EXPECT_EQ(HandlerTable::describe(unused), nullptr) << unused;
    EXPECT_EQ(HandlerTable::at(unused), HandlerTable::at(0)) << unused;
  }
}

// Every shape of operands in its byte image: slot of 4 bytes, then the operands, little-endian and packed.
TEST(ImageTest, InstructionsAreTheirOperandsPacked) {
  const std::pair<const char*, const char*> images[] = {
      {"branch l", "branchOp 01000000ffff0000"},
      {"condBranch m", "condBranchOp 02000000ffff0000"},
      // The second label's name is interned first.
      {"compareBranch x, l", "compareBranchOp 03000000ffff000001000000ffff0000"},
      {"call m", "callOp 02000000ffff0000"},
      {"return", "returnOp 00000000"},
      {"halt", "haltOp 00000000"},
      {"fetchRow 258", "FetchRowOp 0201"},
      {"fetchRowIndexed 1, 515", "FetchRowIndexedOp 01000302"},
      {"isNullRow 65535", "IsNullRowOp ffff"},
      {"pushCnst<uint8_t> 255", "PushCnstOp<uint8_t,uint64_t> ff"},
      {"pushCnst<int16_t> \"-2\"", "PushCnstOp<int16_t,int64_t> feff"},
      {"pushCnst<uint32_t> 0x01020304", "PushCnstOp<uint32_t,uint64_t> 04030201"},
      {"pushCnst<int64_t> \"-2\"", "PushCnstOp<int64_t,int64_t> feffffffffffffff"},
      {"pushCnst<float> \"1.5\"", "PushCnstOp<float,double> 0000c03f"},
      {"pushCnst<double> \"-2\"", "PushCnstOp<double,double> 00000000000000c0"},
      {"pushCnst<bool> T", "PushCnstOp<bool,bool> 01"},
      {"pushCnst<IpAddr> \"1.2.3.4\"", "PushCnstOp<IpAddr,IpAddr> 01020304"},
      {"pushCnst<Ip6Addr> \"2001:db8::1\"", "PushCnstOp<Ip6Addr,Ip6Addr> 20010db8000000000000000000000001"},
      {"pushParam<uint16_t> 8", "PushParamOp<uint16_t,uint64_t> 0800"},
      {"pushColumn<int8_t> 1, 9", "PushColumnOp<int8_t,int64_t> 01000900"},
      {"popColumn<bool> 0, 258", "PopColumnOp<bool,bool> 00000201"},
      {"nswap<bool,int8_t>", "NSwapOp<uint64_t,bool>"},
      {"nswap<double,bool>", "NSwapOp<bool,uint64_t>"},
      {"add<int8_t>", "tv_plusOperation<int64_t>"},
      {"boolOr", "tv_boolOrOperation<bool>"},
  };
  std::string program = "label l\nnoop\n";
  for (const auto& [statement, image] : images) program += std::string(statement) + "\n";
  const Lines lines = listing(*assemble(program));
  ASSERT_EQ(lines.size(), std::size(images));
  for (std::size_t i = 0; i < lines.size(); ++i)
    EXPECT_EQ(lines[i].substr(lines[i].find(' ') + 1), images[i].second) << images[i].first;
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
  const auto run = [&](std::initializer_list<int> values) {
    context->istream().programCounterIs(0);
    for (const int value : values) push(*context, static_cast<signed char>(value));
    EXPECT_EQ(context->execute(), Context::Ready);
    EXPECT_TRUE(context->isEmpty());
    return operands();
  };
  const std::string unresolved = operands();
  for (const int value : {0, 2, -2}) EXPECT_EQ(run({value}), unresolved) << value;
  // -1 and 1 come back to the start, where a further value has to wait.
  EXPECT_EQ(run({0, 1}), "02000000ffff00000100000002000000");
  EXPECT_EQ(run({0, -1}), "02000000010000000100000002000000");
}

// Standard output of a process that ends, where a death test can read it.
template <typename Action>
void withOutputOnError(const Action& action) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  action();
}

TEST(LabelDeathTest, NumbersBeyondTheTableEndTheProcess) {
  const LabelOperand bad{.oid = 0, .label = 77};
  const auto hosting = [](const auto& instruction) {
    OwnedContext context = newContext();
    context->setEntryPoint("a");
    instruction.install(*context);
    haltOp().install(*context);
    return context;
  };
  const auto dies = [](const OwnedContext& context, const char* text) {
    EXPECT_EXIT(withOutputOnError([&] { context->execute(); }), testing::ExitedWithCode(1), text);
  };
  dies(hosting(branchOp{bad}), "^bad branch label index: 77\n$");
  dies(hosting(callOp{bad}), "^bad call target at istream offset 77\n$");
  const OwnedContext inverse = hosting(invCondBranchOp{bad});
  push(*inverse, false);
  dies(inverse, "^bad branch label index: 77\n$");
  const OwnedContext compare = hosting(compareBranchOp{bad, bad});
  push(*compare, static_cast<signed char>(-1));
  dies(compare, "^bad branch label index: 77\n$");

  const OwnedContext condition = hosting(condBranchOp{bad});
  push(*condition, true);
  EXPECT_EQ(condition->execute(), Context::Ready) << "a true condition without a label counts as false";
  const LabelOperand none{.oid = 0, .label = noBranch};
  for (const int value : {-1, 1}) {
    const OwnedContext free = hosting(compareBranchOp{none, none});
    push(*free, static_cast<signed char>(value));
    EXPECT_EQ(free->execute(), Context::Ready) << "no branch was wanted";
  }

  EXPECT_EXIT(assemble("halt\n")->execute(1), testing::ExitedWithCode(1), "^unknown starting point: 1\n$");
}

// ---- calls

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
  };
  for (const Stray& stray : {Stray{"name\n", 0}, Stray{"halt\n", 4}, Stray{"halt\n", 8}, Stray{"halt\n", 512},
                             Stray{"swap<bool>\n", 4}, Stray{"branch 0xffffffff\n", 8}}) {
    const OwnedContext context = assemble(stray.program);
    context->istream().programCounterIs(static_cast<len_t>(stray.pc));
    EXPECT_EQ(thrown<TvOutOfRange>([&] { context->execute(); }),
              "no instruction at istream offset " + std::to_string(stray.pc));
    EXPECT_EQ(context->istream().programCounter(), stray.pc + 4);
  }
  // Behind the capacity the first instruction is what runs.
  const OwnedContext context = assemble("halt\n");
  context->istream().programCounterIs(513);
  EXPECT_EQ(context->execute(), Context::Ready);
}

}  // namespace
}  // namespace Tavro::TvRT
