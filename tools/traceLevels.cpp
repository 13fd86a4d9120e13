#include "traceLevels.h"

#include <algorithm>
#include <charconv>

#include "Tavro/Kelpo.h"
#include "Tavro/TvRTDebug.h"
#include "failure.h"
#include "namedValues.h"

namespace Tavro::Tool {

namespace {

constexpr int highestLevel = 31;

std::vector<std::string> knownCategories() {
  std::vector<std::string> categories(TvRT::debugCategories.begin(), TvRT::debugCategories.end());
  categories.emplace_back("Scheduler");
  return categories;
}

std::string listed(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

int readLevel(const std::string& text) {
  int level = -1;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), level);
  if (error != std::errc() || stop != text.data() + text.size() || level < 0 || level > highestLevel)
    failCommandLine("--trace: '" + text + "' is no level from 0 to " + std::to_string(highestLevel));
  return level;
}

}  // namespace

std::vector<TraceLevel> readTraceLevels(const std::vector<std::string>& texts) {
  const std::vector<std::string> categories = knownCategories();
  std::vector<TraceLevel> levels;
  for (const std::string& text : texts) {
    const auto [category, list] = readNamedValue("--trace CATEGORY=LEVEL[,LEVEL...]", text);
    if (std::find(categories.begin(), categories.end(), category) == categories.end())
      failCommandLine("--trace: no category '" + category + "'; there are " + listed(categories));
    for (const std::string& level : splitAtCommas(list)) levels.push_back({category, readLevel(level)});
  }
  return levels;
}

void turnOn(const std::vector<TraceLevel>& levels) {
  for (const auto& [category, level] : levels)
    Kelpo::Platform::getDebugHandler(category)->levelIs(level, true);
}

}  // namespace Tavro::Tool
