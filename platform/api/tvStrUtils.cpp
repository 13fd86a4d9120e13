#include <algorithm>
#include <string_view>

#include "Tavro/tvMetadata.h"

namespace Tavro::TvStrUtils {

namespace {

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

std::string trim(const std::string& text) {
  constexpr std::string_view whiteSpace = " \t\n\v\f\r";
  const std::size_t first = text.find_first_not_of(whiteSpace);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
}

bool iequals(const std::string& left, const std::string& right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return lowered(a) == lowered(b); });
}

}  // namespace Tavro::TvStrUtils
