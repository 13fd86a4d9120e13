#include "trialLoad.h"

#include <exception>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "Tavro/TvRTLoader.h"
#include "capturedErrors.h"

namespace Tavro::Tool {

namespace {

// Stands for the program in the loader's messages.
constexpr const char* loaderPath = "program";

// The first message of a load that says that something is wrong with the program; empty for none. Remarks on
// properties are no faults.
std::string firstFaultIn(const std::string& messages) {
  constexpr std::string_view syntaxError = "Error: ";
  // Begins with the property's name, which may be any text of one line.
  constexpr std::string_view propertyRemark = " is not a supported parameter.  ";
  const std::string loaderError = std::string(loaderPath) + ':';
  std::istringstream in(messages);
  for (std::string line; std::getline(in, line);) {
    if (line.find(propertyRemark) != std::string::npos) continue;
    if (line.starts_with(syntaxError)) return line.substr(syntaxError.size());
    // "PATH:NUMBER TEXT.", where the number means nothing.
    if (line.starts_with(loaderError)) {
      const std::size_t text = line.find(' ') + 1;
      return line.substr(text, line.size() - text - (line.ends_with('.') ? 1 : 0));
    }
  }
  return {};
}

std::string faultOf(const std::exception& error) {
  const std::string_view text = error.what();
  if (text != "stoi") return std::string(text);
  return dynamic_cast<const std::out_of_range*>(&error) != nullptr ? "a number does not fit"
                                                                   : "an argument is no number";
}

void assemble(const TvPtr<TavroDB>& database, const std::string& text, LoadOutcome& outcome) {
  const CapturedErrors messages;
  std::string thrown;
  try {
    std::istringstream in(text);
    outcome.context.reset(TvRT::Loader(database, loaderPath, {}).processFile(in));
  } catch (const std::exception& error) {
    thrown = faultOf(error);
  }
  outcome.fault = firstFaultIn(messages.text());
  if (outcome.fault.empty()) outcome.fault = thrown;
}

// True when the text comes to the fault whatever stands behind it. The endings decide every case: a text that
// is still without fault comes to the stray character of the first one, one that ends inside a string or a
// comment to that of another.
bool hasFault(const TvPtr<TavroDB>& database, const std::string& text, const std::string& fault) {
  const std::string stray = fault.find('$') == std::string::npos ? "$" : "@";
  for (const std::string& ending : {stray, "\"\n" + stray, "*/\n" + stray})
    if (tryLoad(database, text + ending).fault != fault) return false;
  return true;
}

// Where each line of the text ends, one behind its line end.
std::vector<std::size_t> lineEndsOf(const std::string& text) {
  std::vector<std::size_t> ends;
  for (std::size_t at = 0; at < text.size(); at = ends.back()) {
    const std::size_t newline = text.find('\n', at);
    ends.push_back(newline == std::string::npos ? text.size() : newline + 1);
  }
  return ends;
}

}  // namespace

LoadOutcome tryLoad(const TvPtr<TavroDB>& database, const std::string& text) {
  LoadOutcome outcome;
  assemble(database, text, outcome);
  // The scanner gathers strings in one buffer for the process, and a text that ends inside a string leaves
  // what it has gathered to the next string of any text. This takes it away.
  LoadOutcome rest;
  assemble(database, "src \"\"\n", rest);
  return outcome;
}

// The loader has no line numbers, and a load ends at its first fault: so the fault stands where the text, cut
// behind that line, first comes to it.
std::size_t lineOfFault(const TvPtr<TavroDB>& database, const std::string& text, const std::string& fault) {
  const std::vector<std::size_t> ends = lineEndsOf(text);
  const auto firstLines = [&](std::size_t count) { return text.substr(0, ends[count - 1]); };
  std::size_t with = ends.size();
  if (!hasFault(database, text, fault)) {
    // The text ends within a string or comment, which is the fault. Every cut behind its first line shows it.
    while (with > 1 && tryLoad(database, firstLines(with - 1)).fault == fault) --with;
    return with;
  }
  std::size_t without = 0;
  while (with - without > 1) {
    const std::size_t middle = without + (with - without) / 2;
    (hasFault(database, firstLines(middle), fault) ? with : without) = middle;
  }
  return with;
}

}  // namespace Tavro::Tool
