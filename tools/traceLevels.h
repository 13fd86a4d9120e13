#pragma once

#include <string>
#include <vector>

namespace Tavro::Tool {

struct TraceLevel {
  std::string category;
  int level;
};

// Reads the values of --trace, each CATEGORY=LEVEL[,LEVEL...]. Throws Failure on a category or level that
// does not exist.
std::vector<TraceLevel> readTraceLevels(const std::vector<std::string>& texts);

void turnOn(const std::vector<TraceLevel>& levels);

}  // namespace Tavro::Tool
