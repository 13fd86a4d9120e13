// Without trace sites an instruction may carry out the one behind it as well. Here each program runs with a
// level turned on, one instruction at a time, and without: what the two leave behind must be the same. The
// case files do so with what text reaches; here are the bytes of stack and stream, and what is rare.

#include <algorithm>
#include <limits>
#include <random>

#include "support.h"

namespace Tavro::TvRT {
namespace {

constexpr len_t rowLength = 40;

// Slots 0 and 1 hold a row of their own, slot 2 a null row.
OwnedContext operatorOf(const std::string& program) {
  std::string text;
  for (const char* slot : {"0", "1", "2"})
    text += "bindTable " + std::string(slot) + ", " + std::to_string(rowLength) + ", 0, \"t::t" + slot +
            "\", \"t" + slot + "\", \"\"\n";
  OwnedContext context = assemble(text + "end\n" + program);
  context->clearRow(0);
  context->clearRow(1);
  return context;
}

// All that a run leaves, in a form that can be compared and read.
std::string rest(Context& context, const std::string& said) {
  std::ostringstream text;
  const Stack& stack = context.stackR();
  text << said << "\nstate " << context.runState() << ", pc " << context.istream().programCounter()
       << ", depth " << stack.depth() << "\nstack";
  const auto writeBytes = [&](const unsigned char* from, const unsigned char* to) {
    for (; from != to; ++from) text << " " << unsigned{*from};
  };
  // Around the top, and a guard stands behind the limit.
  const unsigned char* const top = stack.topOfStack();
  writeBytes(top - std::min(stack.depth(), 20U), top + 20);
  text << "\nstream";
  writeBytes(context.istream().at(0), context.istream().at(0) + context.maxLoc());
  for (len_t slot = 0; slot < 3; ++slot) {
    const BaseRow& row = context.getRow(slot);
    text << "\nrow";
    if (!row.isNull()) writeBytes(row.rowBuf(), row.rowBuf() + rowLength);
  }
  return text.str();
}

// Without the places in memory that the message of a full stack names.
std::string withoutPlaces(const std::string& message) {
  const std::string overflow = "stack overflow ";
  return message.starts_with(overflow) ? overflow + message.substr(message.rfind(' ')) : message;
}

// Two runs from the start, since the first finds the labels: what each leaves.
template <typename Prepare>
std::string runs(const std::string& program, bool traced, const Prepare& prepare) {
  const OwnedContext context = operatorOf(program);
  std::string text;
  for (int run = 0; run < 2; ++run) {
    context->istream().programCounterIs(0);
    context->stackR().clear();
    prepare(*context);
    const auto execute = [&] { context->execute(); };
    std::string said;
    const std::string output = outputOf([&] {
      if (traced)
        traceOf({{"Stack", 4}}, [&] { said = thrown(execute); });
      else
        said = thrown(execute);
    });
    text += rest(*context, output + withoutPlaces(said)) + "\n";
  }
  return text;
}

template <typename Prepare>
void expectTheSame(const std::string& program, const Prepare& prepare) {
  EXPECT_EQ(runs(program, false, prepare), runs(program, true, prepare)) << program;
}
void expectTheSame(const std::string& program) {
  expectTheSame(program, [](Context&) {});
}

TEST(FollowTest, RareThingsAreLeftToTheInstructionItself) {
  const std::string sum = "pushCnst<double> 7\npushCnst<double> 2\nmul<double>\n";
  BaseRow other;
  // Into a row that somebody shares, which must not see it; into a null row; where no slot is.
  expectTheSame(sum + "popColumn<double> 0, 8\nhalt\n", [&](Context& context) {
    context.clearRow(0);
    other = context.getRow(0);
  });
  expectTheSame(sum + "popColumn<double> 2, 8\nhalt\n");
  expectTheSame(sum + "popColumn<double> 77, 8\nhalt\n");
  double seen = 1;
  other.getColumn(8, seen);
  EXPECT_EQ(seen, 0);
  // At the end of the stream, where no further instruction stands.
  expectTheSame(sum + "popColumn<double> 0, 8\n");
  expectTheSame("label back\nhalt\nisNullRow 0\ninvCondBranch back\n",
                [](Context& context) { context.istream().programCounterIs(4); });
  expectTheSame("isNullRow 0\ncondBranch nowhere\n");
}

// Any statement may stand behind any other. Each has a label, and branches lead forward, so that all end.
std::string randomProgram(std::mt19937& random) {
  const auto below = [&](unsigned bound) { return static_cast<unsigned>(random() % bound); };
  const std::vector<std::string> types = {"uint8_t", "int32_t", "uint64_t", "double"};
  // @ stands for a type, # for a slot, % for a column, ^ for a label.
  const std::vector<std::string> statements = {
      "pushColumn<@> #, %", "pushCnst<@> 3", "popColumn<@> #, %", "discard<@>", "add<@>",
      "mul<@>\npopColumn<@> #, %", "gt<@>", "eq<@>\ninvCondBranch ^", "condBranch ^", "isNullRow #",
      "isNullRow #\ncondBranch ^", "copyColumn<@> #, %, #, %", "equalColumn<@> #, %, #, %",
      "compareColumn<@> #, %, #, %",
      // What stands where a three-way result is asked for must not be null.
      "compareColumn<@> #, %, #, %\ncompareBranch ^, ^"};
  const unsigned count = 5 + below(30);
  std::string program;
  for (unsigned at = 0; at < 6; ++at)
    program += "pushCnst<" + types[below(4)] + "> " + std::to_string(at) + "\n";
  for (unsigned at = 0; at < count; ++at) {
    const std::string type = types[below(4)];
    program += "label l" + std::to_string(at) + "\n";
    for (const char letter : statements[below(static_cast<unsigned>(statements.size()))]) {
      if (letter == '@')
        program += type;
      else if (letter == '#')
        program += std::to_string(below(8) % 3);
      else if (letter == '%')
        program += std::to_string(8 * (1 + below(4)));
      else if (letter == '^')
        program += "l" + std::to_string(at + 1 + below(count - at));
      else
        program += letter;
    }
    program += "\n";
  }
  return program + "label l" + std::to_string(count) + "\n" + (below(4) != 0 ? "halt\n" : "");
}

// Numbers in the rows, not a number among them, and now and then a stack that is all but full.
void prepareRandomly(Context& context, unsigned seed) {
  std::mt19937 random(seed);
  const double numbers[] = {0, 1, -1, 2.5, std::numeric_limits<double>::quiet_NaN()};
  for (const len_t slot : {len_t{0}, len_t{1}})
    for (const len_t column : {len_t{8}, len_t{16}, len_t{24}, len_t{32}})
      context.getRow(slot).setColumn(column, numbers[random() % std::size(numbers)], rowLength);
  if (random() % 4 != 0) return;
  // An entry of another width makes the number of bytes odd or even.
  if (random() % 2 == 0) push(context, 1.0);
  const auto depth = static_cast<unsigned>(3900 + random() % 100);
  while (context.depth() + 2 <= depth) push(context, true);
}

TEST(FollowTest, RandomProgramsLeaveTheSame) {
  std::mt19937 random(1);
  for (unsigned program = 0; program < 1000 && !HasFailure(); ++program)
    expectTheSame(randomProgram(random), [&](Context& context) { prepareRandomly(context, program); });
}

}  // namespace
}  // namespace Tavro::TvRT
