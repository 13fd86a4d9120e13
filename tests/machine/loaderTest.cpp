#include <cstdio>
#include <fstream>

#include "support.h"

namespace Tavro::TvRT {
namespace {

Loader loaderOf(const std::string& path) { return {getTavroDb(), path, {}}; }

// What came of a text that was parsed into a context.
struct Parse {
  std::string errors;     // written to standard error
  std::string exception;  // its message
  unsigned errorCount;
};
Parse parse(Context& context, const std::string& text) {
  std::istringstream in(text);
  Loader loader = loaderOf("test");
  std::string exception;
  const std::string errors =
      errorOutputOf([&] { exception = thrown<TvAssemblyException>([&] { loader.parse(&context, in); }); });
  return {errors, exception, loader.errorCount()};
}

// ---- scanner: seen through the text that a directive takes

// Its query name after the load; or the message of the exception; or what was written to standard error.
std::string outcomeOf(const std::string& program) {
  const OwnedContext context = newContext();
  const Parse outcome = parse(*context, program);
  if (!outcome.errors.empty()) return outcome.errors;
  return context->runState() == Context::Ready ? context->queryName() : outcome.exception;
}

TEST(ScannerTest, TokensAndWhatIsBetweenThem) {
  const std::string syntaxError = "Error: syntax error\n";
  const auto unrecognized = [](const std::string& c) {
    return "Parse error: unrecognized input \"" + c + "\"";
  };
  struct Case {
    std::string text, outcome;
  };
  const std::vector<Case> cases{
      {"", ""},
      {"/* a */// b\n/**/\n\n/***/", ""},
      {"queryName a.b_c", "a.b_c"},
      {"queryName 0x1F", "0x1F"},
      {"queryName halt", "halt"},
      {"  queryName\t/* a */ b // c\n", "b"},
      {"queryName \"a\nb\tc\"", "a\nb\tc"},
      {"queryName \"say \\\"x\\\"\"", "say \"x\""},
      {"queryName \"\xC3\xA9\xFF\"", "\xC3\xA9\xFF"},
      {std::string("queryName \"a\0b\"", 15), std::string("a\0b", 3)},
      // Lines: blanks and comments join a run of line ends, wherever they stand in it.
      {"queryName a /* c */ // d\n// e\nqueryName b\n// f", "b"},
      {"// c\n\n// d\nqueryName b\n\n", "b"},
      // Two comments with a blank between them begin a line's run no less than one does.
      {"queryName a\n/* b */ /* c */\nqueryName d", "d"},
      // A line comment that holds the start of a block comment ends where that one ends, if it does.
      {"queryName a // b /* c\nqueryName d\n*/\nqueryName e", "e"},
      {"queryName a // b /* c\nqueryName d", "d"},
      // Texts that are no tokens.
      {"queryName a /* b", unrecognized("/")},
      {"queryName a:", unrecognized(":")},
      {"queryName \xE9", unrecognized("\xE9")},
      // Two tokens where one was meant.
      {"queryName 12ab", syntaxError},
      {"queryName 0x", syntaxError},
  };
  for (const Case& c : cases) EXPECT_EQ(outcomeOf(c.text), c.outcome) << c.text;
}

TEST(ScannerTest, UnfinishedStringGoesIntoTheNextOneOfTheProcess) {
  EXPECT_EQ(outcomeOf("queryName a\nqueryName \"left "), "queryName takes 1 parameters but it was given 0");
  EXPECT_EQ(outcomeOf("src \"over\"\nqueryName \"own\""), "own");
  assemble("halt\nhalt \"more");
  EXPECT_EQ(outcomeOf("queryName \" text\""), "more text");
  EXPECT_EQ(outcomeOf("queryName \"text\""), "text");
}

// A stream that hands out byte by byte and cannot tell how many are left.
class Trickle : public std::streambuf {
 public:
  explicit Trickle(std::string text) : text_(std::move(text)) {}

 private:
  int_type underflow() override {
    if (next_ == text_.size()) return traits_type::eof();
    char* const byte = &text_[next_++];
    setg(byte, byte, byte + 1);
    return traits_type::to_int_type(*byte);
  }

  std::string text_;
  std::size_t next_ = 0;
};

TEST(ScannerTest, TextsOfAnySizeComeFromAnyStream) {
  // Around the size that a scanner expects of a text, and several times as large.
  for (const std::size_t size : {16383U, 16384U, 16385U, 100000U}) {
    const std::string directive = "queryName ";
    const std::string name(size - directive.size(), 'n');
    Trickle trickle(directive + name);
    std::istream in(&trickle);
    const OwnedContext context = newContext();
    loaderOf("test").parse(context.get(), in);
    EXPECT_EQ(context->queryName(), name) << size;
    EXPECT_EQ(outcomeOf(directive + name), name) << size;
  }
}

// ---- grammar

TEST(GrammarTest, StatementsTakeEffectWhenTheyAreComplete) {
  const std::string syntaxError = "Error: syntax error\n";
  struct Case {
    const char* text;
    unsigned bytes;  // of the program that remains
    std::string errors;
  };
  const std::vector<Case> cases{
      {"halt", 8, ""},
      {"halt\nhalt\n", 16, ""},
      {"add<uint8_t,int8_t , bool>", 4, ""},
      {"fetchRowIndexed 1 ,\t2", 8, ""},
      {"begin 1 2", 6, syntaxError},  // `begin 1` goes through before the second number is found wrong
      {"halt, 1", 8, syntaxError},
      {"begin 1<uint8_t>", 6, syntaxError},
      {"begin 1,", 0, syntaxError},
      {"fetchRowIndexed 1,,2", 0, syntaxError},
      {"add<>", 0, syntaxError},
      {"add<\"uint8_t\">", 0, syntaxError},
      {"add<uint8_t,>", 0, syntaxError},
      {"<uint8_t> add", 0, syntaxError},
      {"1", 0, syntaxError},
      {"halt\nhalt <>\nhalt\nhalt", 8, syntaxError},  // what stands behind the error is lost
  };
  for (const Case& c : cases) {
    const OwnedContext context = newContext();
    const Parse outcome = parse(*context, c.text);
    EXPECT_EQ(outcome.errors, c.errors) << c.text;
    EXPECT_EQ(outcome.errorCount, 0U) << c.text;
    EXPECT_EQ(context->maxLoc(), c.bytes) << c.text;
    EXPECT_EQ(context->runState(), Context::Ready) << c.text;
  }
}

TEST(GrammarTest, WhatFollowsALineEndCompletesTheStatementBeforeIt) {
  const OwnedContext context = newContext();
  const std::string message = "Parse error: unrecognized input \"$\"";
  EXPECT_EQ(parse(*context, "halt $").exception, message);
  EXPECT_EQ(context->maxLoc(), 0);
  EXPECT_EQ(parse(*context, "halt\n$").exception, message);
  EXPECT_EQ(context->maxLoc(), 8);
  EXPECT_EQ(context->runState(), Context::Unloaded) << "an exception ends the load";
}

TEST(GrammarTest, ListsHaveNoLimit) {
  std::string words = "bool";
  for (unsigned i = 1; i < 5000; ++i) words += ",bool";
  EXPECT_EQ(listing(*assemble("swap<" + words + ">")), Lines{"0 SwapOp<bool>"});
  EXPECT_EQ(parse(*newContext(), "fetchRow " + words).exception,
            "fetchRow takes 1 parameters but it was given 5000");
}

// ---- loader

TEST(LoaderTest, NumbersAreDecimalAndOfThirtyTwoBits) {
  const std::pair<const char*, int> values[] = {{"007", 7},      {"0x10", 0}, {"12abc", 12},
                                                {" \t-5", -5},   {"+6 7", 6}, {"2147483647", 2147483647},
                                                {"70000", 70000}};
  for (const auto& [text, value] : values) EXPECT_EQ(Loader::makeIntValue(text), value) << text;
  for (const char* text : {"", "abc", " ", "+-1", ".5"})
    EXPECT_EQ(thrown<std::invalid_argument>([&] { Loader::makeIntValue(text); }), "stoi") << text;
  for (const char* text : {"2147483648", "-2147483649", "99999999999999999999"})
    EXPECT_EQ(thrown<std::out_of_range>([&] { Loader::makeIntValue(text); }), "stoi") << text;
}

TEST(LoaderTest, ArgumentsAreCutAndConvertedFromTheLast) {
  EXPECT_EQ(listing(*assemble("fetchRowIndexed 65537, \"-1\"")), Lines{"0 FetchRowIndexedOp 0100ffff"});
  EXPECT_EQ(listing(*assemble("pushColumn<bool> 0x10, 4")), Lines{"0 PushColumnOp<bool,bool> 00000400"});
  EXPECT_THROW(assemble("fetchRowIndexed 99999999999, abc"), std::invalid_argument);
  EXPECT_THROW(assemble("fetchRowIndexed abc, 99999999999"), std::out_of_range);
  EXPECT_THROW(assemble("bindTable 99999999999, a, 0, t, t, t"), std::invalid_argument);
}

TEST(LoaderTest, DirectivesKeepTheTexts) {
  const OwnedContext context =
      assemble("src a\nqueryName 0x5\nqueryHash h\nname\nsrc \"b c\"\nbindConstants 4, x");
  EXPECT_EQ(context->src(), "b c");
  EXPECT_EQ(context->queryName(), "0x5");
  EXPECT_EQ(context->queryHash(), "h");
  EXPECT_EQ(context->maxLoc(), 0);
}

TEST(LoaderTest, TypesGoThroughThePlatform) {
  EXPECT_EQ(listing(*assemble("swap<time_t>")), Lines{"0 SwapOp<uint32_t>"});
  EXPECT_EQ(listing(*assemble("swap<port_t>")), Lines{"0 SwapOp<uint16_t>"});
  EXPECT_THROW(assemble("swap<nothing>"), std::invalid_argument);
  EXPECT_THROW(assemble("unknown<nothing>"), std::invalid_argument) << "types come before the name";
  EXPECT_TRUE(Loader::translateTypes(nullptr).empty());
  EXPECT_TRUE(Loader::processArgs(nullptr).empty());
}

TEST(LoaderTest, StatementsNeedNoText) {
  const std::string name = "pushColumn";
  const std::vector<std::string> types{"int32_t"};
  const std::vector<std::string> args{"1", "12"};
  const OwnedContext context = newContext();
  Loader loader = loaderOf("test");
  loader.dispatchOp(*context, &name, &types, &args);
  loader.genCode(*context, loader.fetchOpCat(name, true, args), args, Loader::translateTypes(&types));
  const std::string halt = "halt";
  loader.dispatchOp(*context, &halt, nullptr, nullptr);
  const std::string statement = "pushColumn<int32_t> 1, 12\n";
  EXPECT_EQ(listing(*context), listing(*assemble(statement + statement + halt)));
  EXPECT_EQ(thrown<TvAssemblyException>([&] { loader.dispatchOp(*context, &halt, nullptr, &args); }),
            "halt takes 0 parameters but it was given 2");
  for (const auto& [category, code] : {std::pair(8U, len_t{1}), std::pair(1U, len_t{700}),
                                       std::pair(0U, len_t{5}), std::pair(1U, len_t{201})}) {
    const opCat unknown{category, code, false, 0};
    EXPECT_EQ(errorOutputOf([&] { loader.genCode(*context, &unknown, {}, {}); }),
              "test:0 Unknown opcode: category = " + std::to_string(category) +
                  "  opCode = " + std::to_string(code) + ".\n");
  }
}

// Arguments are counted before types are asked for.
TEST(LoaderTest, RefusalsAreThrownAndCounted) {
  struct Refusal {
    const char *statement, *message, *errors;
    unsigned errorCount;
  };
  for (const Refusal& refusal : {
           Refusal{"ADD", "test:0 Unknown opcode: ADD.", "test:0 Unknown opcode: ADD.\n", 1},
           Refusal{"add 1", "add takes 0 parameters but it was given 1", "", 0},
           Refusal{"halt<bool> 1", "halt takes 0 parameters but it was given 1", "", 0},
           Refusal{"add", "add required a type but none provided", "", 1},
           Refusal{"halt<bool>", "halt does not take a type but at least one type provided.", "", 1},
       }) {
    const Parse outcome = parse(*newContext(), refusal.statement);
    EXPECT_EQ(outcome.exception, refusal.message);
    EXPECT_EQ(outcome.errors, refusal.errors);
    EXPECT_EQ(outcome.errorCount, refusal.errorCount) << refusal.statement;
  }
}

TEST(LoaderTest, LongMessagesAreCut) {
  Loader loader = loaderOf("p");
  std::string text;
  errorOutputOf([&] { text = loader.error(std::string(3000, 'x')); });
  EXPECT_EQ(text, "p:0 " + std::string(1995, 'x'));
}

TEST(LoaderTest, TextsAndFilesAreToldApartByTheirEnd) {
  for (const char* path : {"", "halt", ".tva"})
    EXPECT_EQ(thrown<std::invalid_argument>([&] { loaderOf(path).load(); }),
              "bad tva file path name: " + std::string(path));
  EXPECT_EQ(thrown<std::invalid_argument>([] { loaderOf("no/such.tva").load(); }),
            "Failed to process tva content: no/such.tva");
  errorOutputOf([] {
    EXPECT_EQ(thrown<TvAssemblyException>([] { loaderOf("a.TVA").load(); }),
              "a.TVA:0 Unknown opcode: a.TVA.");
  });

  const OwnedContext text(loaderOf("halt\n").load());
  EXPECT_EQ(text->maxLoc(), 8);
  const std::string path = programPath();
  std::ofstream(path) << "halt\nhalt\n";
  const OwnedContext file(loaderOf(path).load());
  EXPECT_EQ(file->maxLoc(), 16);

  // Errors of a text are printed under the text, but added up under the name of texts.
  const std::string program = "pushAryCnst<int32_t> 1\nleftShift<bool>";
  EXPECT_EQ(errorOutputOf([&] { OwnedContext(loaderOf(program).load()); }),
            program + ":0 Unknown opcode: category = 5  opCode = 5.\n" + program +
                ":0 Unknown opcode: category = 1  opCode = 20.\ntotal errors for tvaContent: 2\n");
  std::ofstream(path) << "pushAryCnst<int32_t> 1\nhalt\n";
  EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(OwnedContext(loaderOf(path).load())->maxLoc(), 8); }),
            path + ":0 Unknown opcode: category = 5  opCode = 5.\ntotal errors for " + path + ": 1\n");
  std::remove(path.c_str());
}

}  // namespace
}  // namespace Tavro::TvRT
