#include <csignal>
#include <limits>

#include "Tavro/TvRTBinOp.h"
#include "Tavro/TvRTCtrlOps.h"
#include "Tavro/TvRTOpCatalogue.h"
#include "Tavro/TvRTStackOps.h"
#include "support.h"

namespace Tavro::TvRT {
namespace {

// ---- dispatchers

struct Dispatcher {
  const char* name;
  const char* arguments;
  const char* className;
  bool isPair;  // instantiated on column and stack type, not on one
  void (*install)(Context&, TavroTypes);
};

const Dispatcher dispatchers[] = {
    {"installPushCnstOp", "Tavro::TavroTypes, const string&", "PushCnstOp", true,
     [](Context& c, TavroTypes type) {
       const bool isAddress = type == TypeIpAddr || type == TypeIpGenAddr || type == TypeIpGenPrefix;
       StackOps::installPushCnstOp(c, type, type == TypeIp6Addr ? "::1" : isAddress ? "1.2.3.4" : "1");
     }},
    {"installPushParamOp", "Tavro::TavroTypes, Tavro::len_t", "PushParamOp", true,
     [](Context& c, TavroTypes type) { StackOps::installPushParamOp(c, type, 8); }},
    {"installPushColumnOp", "Tavro::TavroTypes, Tavro::len_t, Tavro::len_t", "PushColumnOp", true,
     [](Context& c, TavroTypes type) { StackOps::installPushColumnOp(c, type, 1, 8); }},
    {"installPopColumnOp", "Tavro::TavroTypes, Tavro::len_t, Tavro::len_t", "PopColumnOp", true,
     [](Context& c, TavroTypes type) { StackOps::installPopColumnOp(c, type, 1, 8); }},
    {"installDiscardOp", "Tavro::TavroTypes", "DiscardOp", false, StackOps::installDiscardOp},
    {"installSwapOp", "Tavro::TavroTypes", "SwapOp", false, StackOps::installSwapOp},
};

// The types by code: column type, stack type, entry width of `discard` and `swap`.
struct TypeNames {
  int code;
  const char* column;
  const char* stack;
  std::size_t width;
};
const TypeNames typeNames[] = {
    {0, "uint8_t", "uint64_t", 2},
    {1, "uint16_t", "uint64_t", 3},
    {2, "uint32_t", "uint64_t", 5},
    {3, "uint64_t", "uint64_t", 9},
    {4, "int8_t", "int64_t", 2},
    {5, "int16_t", "int64_t", 3},
    {6, "int32_t", "int64_t", 5},
    {7, "int64_t", "int64_t", 9},
    {8, "float", "double", 5},
    {9, "double", "double", 9},
    {10, "bool", "bool", 2},
    {11, "StringValueReference", "StringValueReference", 3 + sizeof(void*)},
    {13, "uint32_t", "uint64_t", 5},
    {14, "uint16_t", "uint64_t", 3},
    {15, "IpAddr", "IpAddr", 5},
    {16, "Ip6Addr", "Ip6Addr", 17},
    {17, "IpGenAddrReference", "IpGenAddrReference", 2 + sizeof(void*)},
    {18, "IpGenPrefixReference", "IpGenPrefixReference", 3 + sizeof(void*)},
};

// The first instruction's name.
std::string installed(const Context& context) {
  const std::string line = listing(context).at(0).substr(2);
  return line.substr(0, line.find(' '));
}

TEST(DispatcherTest, EveryTypeHasItsInstantiation) {
  for (const Dispatcher& dispatcher : dispatchers) {
    for (const TypeNames& names : typeNames) {
      const OwnedContext context = newContext();
      dispatcher.install(*context, static_cast<TavroTypes>(names.code));
      const std::string types =
          dispatcher.isPair ? std::string(names.column) + "," + names.stack : names.column;
      EXPECT_EQ(installed(*context), dispatcher.className + ("<" + types + ">")) << names.code;
    }
    for (const int code : {12, 19, 255, -1}) {
      const OwnedContext context = newContext();
      EXPECT_EQ(
          thrown<std::runtime_error>([&] { dispatcher.install(*context, static_cast<TavroTypes>(code)); }),
          "static void Tavro::TvRT::StackOps::" + std::string(dispatcher.name) + "(Tavro::TvRT::Context&, " +
              dispatcher.arguments + "): Invalid Operation");
      EXPECT_EQ(context->maxLoc(), 0);
    }
  }
}

TEST(DispatcherTest, ExchangesOfTwoWidths) {
  const auto nameOf = [](int code) -> std::string {
    return code == 10 ? "bool" : code < 10 || code == 13 || code == 14 ? "uint64_t" : "";
  };
  for (int first = 0; first <= 19; ++first)
    for (int second = 0; second <= 19; ++second) {
      const OwnedContext context = newContext();
      const auto install = [&] {
        StackOps::installNSwapOp(*context, static_cast<TavroTypes>(first), static_cast<TavroTypes>(second));
      };
      if (nameOf(first).empty() || nameOf(second).empty()) {
        EXPECT_EQ(
            thrown<std::runtime_error>(install),
            "static void Tavro::TvRT::StackOps::installNSwapOp(Tavro::TvRT::Context&, Tavro::TavroTypes, "
            "Tavro::TavroTypes): Invalid Operation");
        EXPECT_EQ(context->maxLoc(), 0);
      } else {
        install();
        EXPECT_EQ(installed(*context), "NSwapOp<" + nameOf(second) + "," + nameOf(first) + ">");
      }
    }
}

TEST(DispatcherTest, DiscardAndSwapWorkOnTheWidthOfTheColumnType) {
  for (const TypeNames& names : typeNames) {
    const auto type = static_cast<TavroTypes>(names.code);
    const OwnedContext context = newContext();
    StackOps::installDiscardOp(*context, type);
    haltOp().install(*context);
    // Wide enough for one entry of any type.
    push(*context, Ip6Addr());
    push(*context, Ip6Addr());
    context->execute();
    EXPECT_EQ(context->depth(), 34 - names.width) << names.code;

    context->clear();
    StackOps::installSwapOp(*context, type);
    haltOp().install(*context);
    std::string bytes;
    for (std::size_t i = 0; i < names.width; ++i) {
      const auto a = static_cast<unsigned char>(2 * (i % names.width) + 1);
      bytes += static_cast<char>(a);
    }
    for (std::size_t i = 0; i < names.width; ++i) bytes += static_cast<char>(100 + i);
    auto* const base = const_cast<unsigned char*>(context->stackR().bottom());
    while (context->depth() + 2 <= bytes.size()) push(*context, false);
    ASSERT_EQ(context->depth(), bytes.size());
    std::memcpy(base, bytes.data(), bytes.size());
    context->execute();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(base), bytes.size()),
              bytes.substr(names.width) + bytes.substr(0, names.width))
        << names.code;
  }
}

// Words of the type table as columns of the machine show them.
TEST(TypeTest, NamesAndCodesOfNativeTypes) {
  const auto type = [](const std::string& name, int code, const std::string& expected, int expectedCode) {
    EXPECT_EQ(name, expected);
    EXPECT_EQ(code, expectedCode) << expected;
  };
  type(TvRTTypename<unsigned char>(), TvRTTypeValue<unsigned char>(), "uint8_t", 0);
  type(TvRTTypename<unsigned long long>(), TvRTTypeValue<unsigned long long>(), "uint64_t", 3);
  type(TvRTTypename<long long>(), TvRTTypeValue<long long>(), "int64_t", 7);
  type(TvRTTypename<float>(), TvRTTypeValue<float>(), "float", 8);
  type(TvRTTypename<std::string>(), TvRTTypeValue<std::string>(), "string_t", 11);
  type(TvRTTypename<StringValueReference>(), TvRTTypeValue<StringValueReference>(), "StringValueReference",
       11);
  type(TvRTTypename<IpGenAddr>(), TvRTTypeValue<IpGenAddr>(), "IpGenAddr", 17);
  type(TvRTTypename<IpGenAddrReference>(), TvRTTypeValue<IpGenAddrReference>(), "IpGenAddrReference", 17);
  type(TvRTTypename<IpGenPrefix>(), TvRTTypeValue<IpGenPrefix>(), "IpGenPrefix", 18);
  type(TvRTTypename<IpGenPrefixReference>(), TvRTTypeValue<IpGenPrefixReference>(), "IpGenPrefixReference",
       18);
  const Lines lines = traceOf({{"TvRTOp", 9}}, [] { TvRTTypeValue<Ip6Addr>(); });
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(
      lines[0].find(": Tavro::TavroTypes Tavro::TvRT::TvRTTypeValue() [with T = Tavro::Ip6Addr] entered"),
      std::string::npos)
      << lines[0];
}

// ---- binary operators

// For each operation a letter per type code: u and s for the 64-bit integers, f, d, b, and r for what is
// taken as its own type or view; "." for no member.
const std::pair<const char*, const char*> members[] = {
    {"noop", "uuuussssfdbr.uu...."},      {"add", "uuuussssfd...uu...."},
    {"sub", "uuuussssfd...uu...."},       {"mul", "uuuussssfd...uu...."},
    {"div", "uuuussssfd...uu...."},       {"eq", "uuuussssddbr.uurrrr"},
    {"lt", "uuuussssddbr.uurrrr"},        {"shift", "uuuussss..........."},
    {"bitAnd", "uuuussss..........."},    {"bitOr", "uuuussss..........."},
    {"gt", "uuuussssddbr.uurrrr"},        {"ge", "uuuussssddbr.uurrrr"},
    {"le", "uuuussssddbr.uurrrr"},        {"ne", "uuuussssddbr.uurrrr"},
    {"boolAnd", "..........b........"},   {"boolOr", "..........b........"},
    {"contains", "aaaaaaaaaaaa.aaaaaa"},  {"containsElement", "aaaaaaaaaaaa.aaaaaa"},
    {"aryEq", "aaaaaaaaaaaa.aaaaaa"},     {"intersects", "aaaaaaaaaaaa.aaaaaa"},
    {"leftShift", "..................."},
};

TEST(BinOpTest, TableHasTheMembersOfEachOperation) {
  int opcode = 0;
  for (const auto& [name, letters] : members) {
    for (int type = 0; type < 19; ++type) {
      const char letter = letters[type];
      const Handler handler = BinOpDispatch::fetchBinOp(opcode, type);
      ASSERT_EQ(handler != nullptr, letter != '.') << name << " " << type;
      if (handler == nullptr) continue;
      const OwnedContext context = newContext();
      BinOpDispatch::installBinOp(*context, opcode, type);
      ASSERT_EQ(context->maxLoc(), 4);
      HandlerNumber number;
      std::memcpy(&number, context->istream().at(0), sizeof number);
      EXPECT_EQ(HandlerTable::at(number), handler);

      const TypeNames* names = typeNames;
      while (names->code != type) ++names;
      const std::string types = letter == 'u'   ? "uint64_t"
                                : letter == 's' ? "int64_t"
                                : letter == 'f' ? "float"
                                : letter == 'd' ? "double"
                                : letter == 'a' ? std::string(names->column) + "," + names->stack
                                                : names->column;
      const std::string text = installed(*context);
      EXPECT_EQ(text.substr(text.find('<')), "<" + types + ">") << name << " " << type;
    }
    ++opcode;
  }
  EXPECT_EQ(opcode, BinOpDispatch::opcodeCount);
}

TEST(BinOpDeathTest, MissingMembersAbort) {
  const auto aborts = [](int opcode, int type, const char* text) {
    const OwnedContext context = newContext();
    EXPECT_EXIT(BinOpDispatch::installBinOp(*context, opcode, type), testing::KilledBySignal(SIGABRT), text);
  };
  aborts(20, 3, "^installBinOp failed installing op leftShift<uint64_t>\n.*false.*installBinOp");
  aborts(1, 10, "^installBinOp failed installing op add<bool>\n");
  aborts(7, 13, "^installBinOp failed installing op shift<time_t>\n");
  aborts(14, 0, "^installBinOp failed installing op boolAnd<uint8_t>\n");
  EXPECT_EXIT(assemble("add<string_t>"), testing::KilledBySignal(SIGABRT),
              "^installBinOp failed installing op add<string_t>\n");
}

// By their catalogue name.
bool dispatch(Context& context, const std::string& name, int type) {
  for (const OpCatalogueRow& row : opCatalogue)
    if (row.name == name) return BinOpDispatch::dispatchBinOp(row.cat.opCode, type, context);
  ADD_FAILURE() << name;
  return false;
}

TEST(BinOpTest, NoopTakesAPairAndPushesNothing) {
  const std::pair<int, std::size_t> widths[] = {{3, 18}, {4, 18}, {8, 10},
                                                {9, 18}, {10, 4}, {11, 2 * (3 + sizeof(void*))}};
  for (const auto& [type, width] : widths) {
    const OwnedContext context = newContext();
    push(*context, Ip6Addr());
    push(*context, Ip6Addr());
    EXPECT_FALSE(dispatch(*context, "noop", type));
    EXPECT_EQ(context->depth(), 34 - width) << type;
  }
}

TEST(BinOpTest, FloatArithmeticIsOnEntriesOfFiveBytes) {
  const OwnedContext context = newContext();
  push(*context, 1.5F);
  push(*context, 0.25F);
  dispatch(*context, "sub", TypeFloat);
  EXPECT_EQ(context->depth(), 5U);
  EXPECT_EQ(popText<float>(*context), "1.25");
}

TEST(BinOpTest, LogicKeepsTheByteAndItsFlags) {
  struct Case {
    const char* name;
    int left, right, result;
  };
  for (const Case& c : {Case{"boolAnd", 2, 3, 3}, Case{"boolAnd", 0, 3, 0}, Case{"boolAnd", 2, 0, 0},
                        Case{"boolOr", 2, 3, 1}, Case{"boolOr", 0, 3, 3}, Case{"boolOr", 0, 0, 0}})
    for (const int nulls : {0, 1, 2, 3}) {
      const OwnedContext context = newContext();
      context->stackR().push(StackValue<bool>(static_cast<unsigned char>(c.left), (nulls & 1) != 0));
      context->stackR().push(StackValue<bool>(static_cast<unsigned char>(c.right), (nulls & 2) != 0));
      dispatch(*context, c.name, TypeBool);
      const StackValue<bool> result = context->stackR().pop<bool>();
      EXPECT_EQ(result.value, c.result) << c.name << c.left << c.right;
      EXPECT_EQ(result.isNull(), nulls != 0) << c.name << c.left << c.right;
    }
}

TEST(BinOpTest, AnUnderflowLosesWhatWasPopped) {
  const OwnedContext context = newContext();
  push(*context, 5LL);
  EXPECT_EQ(thrown<std::out_of_range>([&] { dispatch(*context, "add", TypeInt64); }), "stack underflow");
  EXPECT_TRUE(context->isEmpty());
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

// Null operands of address and string types, which no column of a row yields with bytes in them.
TEST(BinOpTest, NullViewsCompareWithoutBeingFollowed) {
  const OwnedContext context = newContext();
  const std::pair<const char*, const char*> results[] = {{"eq", "false"}, {"ne", "true"},  {"lt", "true"},
                                                         {"le", "true"},  {"gt", "false"}, {"ge", "false"}};
  for (const auto& [name, result] : results) {
    push(*context, StringValueReference(), true);
    push(*context, StringValueReference("a", 1));
    dispatch(*context, name, TypeString);
    EXPECT_EQ(popText<bool>(*context), result) << name;
    push(*context, IpGenAddrReference(), true);
    push(*context, IpGenAddrReference(), true);
    dispatch(*context, name, TypeIpGenAddr);
    EXPECT_EQ(popText<bool>(*context), result) << name;
  }
}

// ---- arrays

// An array of the texts, in a row that lives as long as the process.
template <typename T>
ArrayReference<T> arrayOf(int type, const std::string& text) {
  static std::vector<BaseRow> rows;
  BaseRow& row = rows.emplace_back(BaseRow(12));
  storeColumnFromString(row, 8, static_cast<unsigned short>(type), 0, true, text, 12);
  ArrayReference<T> array;
  row.getColumn(8, array);
  return array;
}

// Two arrays in, "true" or "false" out. A text that begins with "!" is a null entry with those bytes.
template <typename T>
std::string arrayTest(const char* operation, int type, const std::string& left, const std::string& right) {
  const OwnedContext context = newContext();
  for (const std::string& text : {left, right}) {
    const bool isNull = text.front() == '!';
    push(*context, arrayOf<T>(type, isNull ? text.substr(1) : text), isNull);
  }
  dispatch(*context, operation, type);
  const std::string result = popText<bool>(*context);
  EXPECT_TRUE(context->isEmpty());
  return result;
}

TEST(ArrayOpTest, SetsAndSequences) {
  struct Case {
    const char* left;
    const char* right;
    bool contains, intersects, equal;
  };
  const Case cases[] = {
      {"[1,2,2]", "[2,2]", true, true, false},
      {"[1,2]", "[2,2]", false, true, false},
      {"[2,1,2,1]", "[1,1,2]", true, true, false},
      {"[1,2,3]", "[]", false, false, false},
      {"[]", "[]", false, false, true},
      {"[]", "[1]", false, false, false},
      {"[1,2]", "[2,9]", false, true, false},
      {"[1,2]", "[1,2]", true, true, true},
      {"[1,2]", "[2,1]", true, true, false},
      {"[1]", "[1,1]", false, true, false},
      {"[9]", "[1,2,9]", false, true, false},
      {"[1,2,9]", "[9]", true, true, false},
      {"[1,2]", "![1,2]", false, false, false},
      {"![1,2]", "[1,2]", false, false, false},
      {"![]", "[]", false, false, false},
      {"![]", "![]", false, false, false},
      {"![]", "[1]", false, false, false},
      {"[1,2]", "![]", false, false, false},
      {"[255,0]", "[0,255]", true, true, false},
  };
  const auto text = [](bool value) { return value ? "true" : "false"; };
  for (const Case& c : cases) {
    EXPECT_EQ(arrayTest<unsigned char>("contains", TypeUint8, c.left, c.right), text(c.contains))
        << c.left << c.right;
    EXPECT_EQ(arrayTest<unsigned char>("intersects", TypeUint8, c.left, c.right), text(c.intersects))
        << c.left << c.right;
    EXPECT_EQ(arrayTest<unsigned char>("aryEq", TypeUint8, c.left, c.right), text(c.equal))
        << c.left << c.right;
  }
}

TEST(ArrayOpTest, ElementsOfEveryKindOfWidth) {
  EXPECT_EQ(arrayTest<StringValueReference>("contains", TypeString, R"(["b","","a","b"])", R"(["b","b",""])"),
            "true");
  EXPECT_EQ(arrayTest<StringValueReference>("aryEq", TypeString, R"(["ab","c"])", R"(["a","bc"])"), "false");
  EXPECT_EQ(arrayTest<IpGenPrefixReference>("intersects", TypeIpGenPrefix, "[10.0.0.0/8,::/0]",
                                            "[10.0.0.0/9,::/0]"),
            "true");
  EXPECT_EQ(arrayTest<IpGenPrefixReference>("aryEq", TypeIpGenPrefix, "[10.0.0.0/8]", "[10.0.0.0/9]"),
            "false");
  EXPECT_EQ(arrayTest<double>("intersects", TypeDouble, "[0.0,1]", "[-0.0,2]"), "true");
  EXPECT_EQ(arrayTest<double>("aryEq", TypeDouble, "[nan]", "[nan]"), "false");
  EXPECT_EQ(arrayTest<bool>("contains", TypeBool, "[true,false]", "[false]"), "true");
  EXPECT_EQ(arrayTest<long long>("aryEq", TypeInt64, "[-1,2]", "[-1,2]"), "true");
}

TEST(ArrayOpTest, ElementIsCutToTheWidthOfTheArray) {
  const auto found = []<typename CT, typename ST>(int type, const std::string& array, CT, ST element,
                                                  bool arrayNull, bool elementNull) {
    const OwnedContext context = newContext();
    push(*context, arrayOf<CT>(type, array), arrayNull);
    push(*context, element, elementNull);
    dispatch(*context, "containsElement", type);
    return popText<bool>(*context);
  };
  const unsigned char byte = 0;
  EXPECT_EQ(found(TypeUint8, "[1,44]", byte, 300ULL, false, false), "true");
  EXPECT_EQ(found(TypeUint8, "[1,44]", byte, 45ULL, false, false), "false");
  EXPECT_EQ(found(TypeUint8, "[1,44]", byte, 44ULL, true, false), "false");
  EXPECT_EQ(found(TypeUint8, "[1,44]", byte, 44ULL, false, true), "false");
  EXPECT_EQ(found(TypeUint8, "[]", byte, 0ULL, true, false), "false");
  EXPECT_EQ(found(TypeUint8, "[]", byte, 0ULL, false, false), "false");
  EXPECT_EQ(found(TypeInt8, "[-1]", static_cast<signed char>(0), 0xFFLL, false, false), "true");
  EXPECT_EQ(found(TypeFloat, "[0.1]", 0.0F, 0.1, false, false), "true");
  EXPECT_EQ(found(TypeDouble, "[nan]", 0.0, std::numeric_limits<double>::quiet_NaN(), false, false), "false");
  EXPECT_EQ(found(TypeBool, "[true]", true, true, false, false), "true");
  EXPECT_EQ(found(TypeIpAddr, "[1.2.3.4]", IpAddr(), IpAddr("1.2.3.4"), false, false), "true");
}

// A prebuilt index is probed in place of a scratch one, by the side that the counts choose.
TEST(ArrayOpTest, PrebuiltIndexIsUsedWhereThereIsOne) {
  using Array = ArrayReference<unsigned char>;
  const Array::Index nine{{9, 0}};
  const auto with = [](const Array& array, const Array::Index* index) {
    return Array(array.payload(), array.length(), index);
  };
  const Array small = arrayOf<unsigned char>(TypeUint8, "[1]");
  const Array large = arrayOf<unsigned char>(TypeUint8, "[2,9]");
  const Array both = arrayOf<unsigned char>(TypeUint8, "[1,5]");
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
