#include "Tavro/TvRTLoader.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string_view>
#include <tuple>
#include <utility>

#include "Tavro/TvRTBinOp.h"
#include "Tavro/TvRTColumnOps.h"
#include "Tavro/TvRTCtrlOps.h"
#include "Tavro/TvRTMiscExprOps.h"
#include "Tavro/TvRTRowOps.h"
#include "Tavro/TvRTStackOps.h"
#include "Tavro/TvRTUnaryOps.h"
#include "Tavro/tvExceptions.h"
#include "TvRTLdrLexer.h"
#include "TvRTLdrParser.h"
#include "TvRTNameTable.h"

namespace Tavro::TvRT {

namespace {

constexpr const char* fileSuffix = ".tva";
constexpr const char* textPath = "tvaContent";
constexpr std::size_t messageBufferSize = 2000;

// Reads a text where it stands.
class TextBuffer : public std::streambuf {
 public:
  explicit TextBuffer(std::string& text) { setg(text.data(), text.data(), text.data() + text.size()); }
};

// A signed decimal number at the start of a text, as `makeIntValue` tells.
int intValue(std::string_view text) {
  int number = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc()) return number;
  // Blanks, a plus sign, or an error.
  const std::string terminated(text);
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(terminated.c_str(), &end, 10);
  if (end == terminated.c_str()) throw std::invalid_argument("stoi");
  if (errno == ERANGE || value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
    throw std::out_of_range("stoi");
  return static_cast<int>(value);
}

// One statement on its way into a context.
struct Statement {
  Context& context;
  const opCat& entry;
  Loader::Texts args;
  const std::vector<TavroTypes>& types;

  // A type that the text does not give is one that no dispatcher knows.
  TavroTypes type(std::size_t index) const {
    return index < types.size() ? types[index] : static_cast<TavroTypes>(-1);
  }
  std::string text(std::size_t index) const { return std::string(args[index]); }
  LabelOperand label(std::size_t index) const { return {.oid = context.addString(text(index))}; }
};

using Generate = void (*)(const Statement&);

// The leading arguments as slot numbers, offsets and the like, cut to 16 bits. Converted from the last to the
// first, so that of two bad ones the last is reported.
template <std::size_t Count>
std::array<len_t, Count> numbers(const Statement& statement) {
  std::array<len_t, Count> values{};
  for (std::size_t i = Count; i-- != 0;) values[i] = static_cast<len_t>(intValue(statement.args[i]));
  return values;
}

void nothing(const Statement&) {}

void binary(const Statement& s) { BinOpDispatch::installBinOp(s.context, s.entry.opCode, s.type(0)); }
void logical(const Statement& s) { BinOpDispatch::installBinOp(s.context, s.entry.opCode, TypeBool); }

template <typename Op>
void plain(const Statement& s) {
  Op().install(s.context);
}

template <typename Op>
void jump(const Statement& s) {
  Op{s.label(0)}.install(s.context);
}

// An instruction whose operands are all numbers.
template <typename Op>
void numbered(const Statement& s) {
  std::apply([&](auto... operands) { Op{operands...}.install(s.context); },
             numbers<sizeof(Op) / sizeof(len_t)>(s));
}

// The dispatcher of a family whose operands are all numbers.
template <typename... Operands>
void dispatch(void (*install)(Context&, TavroTypes, Operands...), const Statement& s) {
  std::apply([&](auto... operands) { install(s.context, s.type(0), operands...); },
             numbers<sizeof...(Operands)>(s));
}
template <auto Install>
void typed(const Statement& s) {
  dispatch(Install, s);
}

void compareBranch(const Statement& s) {
  const LabelOperand greater = s.label(1);
  compareBranchOp{s.label(0), greater}.install(s.context);
}

void bindTable(const Statement& s) {
  const auto [index, len, outIndex] = numbers<3>(s);
  s.context.bindTable(index, len, outIndex, s.text(3), s.text(4), s.text(5));
}

// A directive that takes a length and a text.
template <void (Context::*Bind)(len_t, const std::string&)>
void bind(const Statement& s) {
  (s.context.*Bind)(numbers<1>(s)[0], s.text(1));
}

// A directive that takes a text.
template <void (Context::*Set)(const std::string&)>
void set(const Statement& s) {
  (s.context.*Set)(s.text(0));
}

struct GeneratorRow {
  const char* statement;
  Generate generate;
};

// What each statement does. A word of the catalogue that has no row here is one that nothing carries out.
constexpr GeneratorRow generatorRows[] = {
    {"noop", nothing},
    {"add", binary},
    {"sub", binary},
    {"mul", binary},
    {"div", binary},
    {"eq", binary},
    {"lt", binary},
    {"shift", binary},
    {"bitAnd", binary},
    {"bitOr", binary},
    {"gt", binary},
    {"ge", binary},
    {"le", binary},
    {"ne", binary},
    {"boolAnd", logical},
    {"boolOr", logical},
    {"contains", binary},
    {"containsElement", binary},
    {"aryEq", binary},
    {"intersects", binary},
    {"neg", typed<&UnaryOps::installUnaryMinusOp>},
    {"not", [](const Statement& s) { UnaryOps::installNotOp(s.context); }},
    {"coerce", [](const Statement& s) { UnaryOps::installCoerceOp(s.context, s.type(0), s.type(1)); }},
    {"condExpr", typed<&MiscExprOps::installCondExprOp>},
    {"hash", typed<&MiscExprOps::installHashOp>},
    {"overlaps", numbered<OverlapsOp>},
    {"stepLess", numbered<StepLessOp>},
    {"halt", plain<haltOp>},
    {"branch", jump<branchOp>},
    {"condBranch", jump<condBranchOp>},
    {"compareBranch", compareBranch},
    {"invCondBranch", jump<invCondBranchOp>},
    {"bindTable", bindTable},
    {"label", [](const Statement& s) { s.context.setEntryPoint(s.text(0)); }},
    {"entry", [](const Statement& s) { s.context.setEntryPoint(s.text(0)); }},
    {"name", nothing},
    {"end", [](const Statement& s) { s.context.endEncountered(); }},
    {"src", set<&Context::srcIs>},
    {"queryHash", set<&Context::queryHashIs>},
    {"queryName", set<&Context::queryNameIs>},
    {"properties", set<&Context::setProperties>},
    {"call", jump<callOp>},
    {"return", plain<returnOp>},
    {"bindParameters", bind<&Context::bindParameters>},
    {"bindConstants", bind<&Context::bindConstants>},
    {"iterCount", [](const Statement& s) { s.context.setIterCount(numbers<1>(s)[0]); }},
    {"bindTemporaries", bind<&Context::bindTemporaries>},
    {"pushCnst", [](const Statement& s) { StackOps::installPushCnstOp(s.context, s.type(0), s.text(0)); }},
    {"pushParam", typed<&StackOps::installPushParamOp>},
    {"pushColumn", typed<&StackOps::installPushColumnOp>},
    {"popColumn", typed<&StackOps::installPopColumnOp>},
    {"pushAryParam", typed<&StackOps::installPushAryParamOp>},
    {"pushAryColumn", typed<&StackOps::installPushAryColumnOp>},
    {"popAryColumn", typed<&StackOps::installPopAryColumnOp>},
    {"discard", typed<&StackOps::installDiscardOp>},
    {"swap", typed<&StackOps::installSwapOp>},
    {"nswap", [](const Statement& s) { StackOps::installNSwapOp(s.context, s.type(0), s.type(1)); }},
    {"copyColumn", typed<&ColumnOps::installCopyColumnOp>},
    {"copyAryColumn", typed<&ColumnOps::installCopyAryColumnOp>},
    {"equalColumn", typed<&ColumnOps::installEqualColumnOp>},
    {"equalAryColumn", typed<&ColumnOps::installEqualAryColumnOp>},
    {"compareColumn", typed<&ColumnOps::installCompareColumnOp>},
    {"iterInit", typed<&StackOps::installIterInitOp>},
    {"nextValue", typed<&StackOps::installNextValueOp>},
    {"curValue", typed<&StackOps::installCurValueOp>},
    {"fetchRow", numbered<FetchRowOp>},
    {"fetchRowIndexed", numbered<FetchRowIndexedOp>},
    {"clearRow", numbered<ClearRowOp>},
    {"begin", numbered<BeginOp>},
    {"lowerBound", numbered<LowerBoundOp>},
    {"lowerBoundIndexed", numbered<LowerBoundIndexedOp>},
    {"nextRow", numbered<NextRowOp>},
    {"insertRow", numbered<InsertRowOp>},
    {"deleteRow", numbered<DeleteRowOp>},
    {"deleteRowIndexed", numbered<DeleteRowIndexedOp>},
    {"isNullRow", numbered<IsNullRowOp>},
};

// The rows by the number that category and code make.
class Generators {
 public:
  constexpr Generators() {
    for (const GeneratorRow& row : generatorRows)
      for (const OpCatalogueRow& known : opCatalogue)
        if (known.name == row.statement) bySelector_[selector(known.cat)] = row.generate;
  }

  // Null for numbers that no row has.
  constexpr Generate at(const opCat& entry) const {
    const bool isKnown = entry.category - BinaryOps < families && entry.opCode < codesOfFamily;
    return isKnown ? bySelector_[selector(entry)] : nullptr;
  }

 private:
  static constexpr unsigned families = RowInstructions;
  static constexpr std::size_t selector(const opCat& entry) {
    return static_cast<std::size_t>(opKey(entry.category, entry.opCode) - opKey(BinaryOps, 0));
  }

  std::array<Generate, families * codesOfFamily> bySelector_{};
};

constexpr Generators generators;

constexpr NameTable<opCatalogue.size()> operationNames(opCatalogue);
constexpr NameTable<typeTable.size()> typeNames(typeTable);

// The platform is asked for a name that it alone may know, which is to say none, and raises its error.
TavroTypes typeOfName(std::string_view name) {
  const std::size_t row = typeNames.find(name);
  return row != typeTable.size() ? typeTable[row].code : tavroCppTypeNameToType(std::string(name));
}

std::vector<std::string_view> viewsOf(const std::vector<std::string>* texts) {
  return texts == nullptr ? std::vector<std::string_view>()
                          : std::vector<std::string_view>(texts->begin(), texts->end());
}

}  // namespace

Kelpo::DebugHandler* Loader::__kelpoDebug::getHandler() {
  static Kelpo::DebugHandler* const hdl = Kelpo::Platform::getDebugHandler("Loader");
  return hdl;
}

Loader::Loader(TvPtr<TavroDB> databaseHandle, const std::string& pathOrText,
               const std::unordered_map<std::string, std::string>& parameters)
    : database(std::move(databaseHandle)), path(pathOrText), params(parameters) {}

Context* Loader::load() {
  if (path.size() < 5) throw std::invalid_argument("bad tva file path name: " + path);
  OwnedContext context;
  if (path.compare(path.size() - 4, 4, fileSuffix) == 0) {
    std::ifstream in(path);
    if (!in) throw std::invalid_argument("Failed to process tva content: " + path);
    context.reset(processFile(in));
  } else {
    TextBuffer text(path);
    std::istream in(&text);
    context.reset(processFile(in));
    path = textPath;
  }
  if (errorCount() != 0) std::cerr << "total errors for " << path << ": " << errorCount() << std::endl;
  return context.release();
}

Context* Loader::processFile(std::istream& in) {
  OwnedContext context(new Context(database));
  parse(context.get(), in);
  return context.release();
}

void Loader::parse(Context* context, std::istream& in) {
  const Asm::ScannerMemory memory;
  Asm::Lexer lexer(in);
  Asm::Parser parser(lexer, *this, context);
  // A syntax error has been reported and ends the text; what stands before it is the program.
  parser.parse();
  context->state = Context::Ready;
}

void Loader::dispatchOp(Context& context, std::string_view name, Texts types, Texts args) {
  typeCodes.clear();
  for (const std::string_view type : types) typeCodes.push_back(typeOfName(type));
  generate(context, rowOf(name, !typeCodes.empty(), args.size()), args, typeCodes);
}

void Loader::dispatchOp(Context& context, const std::string* name, const std::vector<std::string>* types,
                        const std::vector<std::string>* args) {
  dispatchOp(context, std::string_view(*name), viewsOf(types), viewsOf(args));
}

std::vector<TavroTypes> Loader::translateTypes(const std::vector<std::string>* types) {
  std::vector<TavroTypes> codes;
  if (types == nullptr) return codes;
  codes.reserve(types->size());
  for (const std::string& name : *types) codes.push_back(typeOfName(name));
  return codes;
}

std::vector<std::string> Loader::processArgs(const std::vector<std::string>* args) {
  return args == nullptr ? std::vector<std::string>() : *args;
}

const opCat* Loader::fetchOpCat(const std::string& name, bool hasTypes,
                                const std::vector<std::string>& args) {
  return &rowOf(name, hasTypes, args.size());
}

const opCat& Loader::rowOf(std::string_view name, bool hasTypes, std::size_t argCount) {
  const std::size_t row = operationNames.find(name);
  if (row != opCatalogue.size()) [[likely]] {
    const opCat& entry = opCatalogue[row].cat;
    if (entry.argCount == argCount && entry.typed == hasTypes) [[likely]]
      return entry;
  }
  refuse(row, std::string(name), argCount);
}

void Loader::refuse(std::size_t row, const std::string& name, std::size_t argCount) {
  if (row == opCatalogue.size()) throw TvAssemblyException(error("Unknown opcode: " + name));
  const opCat& entry = opCatalogue[row].cat;
  if (entry.argCount != argCount)
    throw TvAssemblyException(name + " takes " + std::to_string(entry.argCount) +
                              " parameters but it was given " + std::to_string(argCount));
  ++errors;
  throw TvAssemblyException(name + (entry.typed ? " required a type but none provided"
                                                : " does not take a type but at least one type provided."));
}

void Loader::genCode(Context& context, const opCat* entry, const std::vector<std::string>& args,
                     const std::vector<TavroTypes>& types) {
  generate(context, *entry, viewsOf(&args), types);
}

void Loader::generate(Context& context, const opCat& entry, Texts args,
                      const std::vector<TavroTypes>& types) {
  if (debug.handler()->isOn(traceDetail)) publishTrace(context, entry, args, types);
  const Generate generator = generators.at(entry);
  if (generator != nullptr)
    generator({context, entry, args, types});
  else
    error("Unknown opcode: category = " + std::to_string(entry.category) +
          "  opCode = " + std::to_string(entry.opCode));
}

int Loader::makeIntValue(const std::string& text) { return intValue(text); }

std::string Loader::error(const std::string& message) {
  std::array<char, messageBufferSize> text{};
  std::snprintf(text.data(), text.size(), "%s:%zu %s.", path.c_str(), line, message.c_str());
  std::cerr << text.data() << std::endl;
  ++errors;
  return text.data();
}

void Loader::publishTrace(const Context& context, const opCat& entry, Texts args,
                          const std::vector<TavroTypes>& types) const {
  const auto name = opNameByCode.find(opKey(entry.category, entry.opCode));
  std::string statement = name == opNameByCode.end() ? "unknown" : name->second;
  if (!types.empty()) {
    statement += "[";
    for (const TavroTypes type : types) statement += typeNameOrUnknown(type) + " ";
    statement += "]";
  }
  statement.append(11, ' ');
  for (const std::string_view arg : args) statement.append(arg).append(" ");
  Kelpo::trace(debug.handler(), traceDetail, "TvRTLoader", __LINE__, "publishTrace",
               [&](std::ostream& text) { text << std::setw(3) << context.maxLoc() << "   " << statement; });
}

}  // namespace Tavro::TvRT
