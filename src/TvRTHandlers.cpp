#include "Tavro/TvRTHandlers.h"

#include <mutex>
#include <sstream>
#include <stdexcept>
#include <unordered_map>
#include <vector>

#include "Tavro/TvRTContext.h"
#include "Tavro/tvExceptions.h"

namespace Tavro::TvRT {

namespace {

OpResult noInstruction(Context& context) {
  const auto offset = static_cast<len_t>(context.istream().programCounter() - IStream::handlerSlotWidth);
  throw TvOutOfRange("no instruction at istream offset " + std::to_string(offset));
}

template <typename AnyHandler>
constexpr std::array<AnyHandler, HandlerTable::capacity> filledWith(AnyHandler handler) {
  std::array<AnyHandler, HandlerTable::capacity> table{};
  table.fill(handler);
  return table;
}

struct Registry {
  std::mutex mutex;
  std::unordered_map<Handler, HandlerNumber> numbers;
  // By index; 0 is taken by noInstruction.
  std::vector<Describe> describes{nullptr};
};

Registry& registry() {
  static Registry instance;
  return instance;
}

}  // namespace

void writeTypeNames(std::ostream& text, std::span<const NativeType> types, const char* separator) {
  if (types.empty()) return;
  const char* before = "<";
  for (const NativeType& type : types) {
    text << before << type.name;
    before = separator;
  }
  text << ">";
}

std::string InstructionInfo::statementText() const {
  std::string text;
  for (const char* at = statement; *at != 0; ++at) {
    if (*at >= '0' && *at <= '9')
      text += typeNameOrUnknown(arguments[static_cast<std::size_t>(*at - '0')].code);
    else
      text += *at;
  }
  return text;
}

std::string InstructionInfo::name() const {
  std::ostringstream text;
  text << className;
  writeTypeNames(text, arguments, ",");
  return text.str();
}

std::string InstructionInfo::installSignature() const {
  std::ostringstream text;
  text << "Tavro::len_t Tavro::TvRT::" << className;
  if (!arguments.empty()) text << "<" << parameters << ">";
  text << "::install(Tavro::TvRT::Context&)";
  if (arguments.empty()) return text.str();
  text << " [with ";
  std::istringstream names(parameters);
  for (const NativeType& type : arguments) {
    std::string name;
    std::getline(names >> std::ws, name, ',');
    text << name << " = " << type.spelling << "; ";
  }
  text << "Tavro::len_t = short unsigned int]";
  return text.str();
}

PlainOutcome Handlers::runTraced(Context& context, std::size_t pc) {
  IStream& stream = context.istream();
  stream.programCounterIs(static_cast<len_t>(pc));
  const auto offset = static_cast<len_t>(pc - IStream::handlerSlotWidth);
  const OpResult result = HandlerTable::at(stream.handlerAt(offset))(context);
  if (result != OpOk) return {result, offset};
  return {OpOk, stream.programCounter(), context.isRunning()};
}

constinit std::array<Handler, HandlerTable::capacity> HandlerTable::traced =
    filledWith(Handlers(&noInstruction).traced);
constinit std::array<PlainHandler, HandlerTable::capacity> HandlerTable::plain =
    filledWith(Handlers(&noInstruction).plain);

HandlerNumber HandlerTable::numberOf(const Handlers& pair, Describe describe) {
  Registry& known = registry();
  const std::lock_guard lock(known.mutex);
  const auto found = known.numbers.find(pair.traced);
  if (found != known.numbers.end()) return found->second;
  const std::size_t index = known.describes.size();
  if (index == capacity) throw std::length_error("table of instruction handlers is full");
  const HandlerNumber number = base + static_cast<HandlerNumber>(index);
  known.describes.push_back(describe);
  known.numbers.emplace(pair.traced, number);
  traced[index] = pair.traced;
  plain[index] = pair.plain;
  return number;
}

Describe HandlerTable::describe(HandlerNumber number) {
  Registry& known = registry();
  const std::lock_guard lock(known.mutex);
  const std::size_t index = indexOf(number);
  return index < known.describes.size() ? known.describes[index] : nullptr;
}

}  // namespace Tavro::TvRT
