#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Tavro::Tool {

using NamedValue = std::pair<std::string, std::string>;

// Splits "NAME=VALUE" at its first equals sign. `form` is how the whole option is shown in messages,
// `command` whose help they point to. Throws Failure on a text without name or sign.
NamedValue readNamedValue(const std::string& form, const std::string& text,
                          const std::string& command = "tvop run");

// The same for all texts of an option that may give each name once.
std::map<std::string, std::string> readNamedValues(const std::string& form,
                                                   const std::vector<std::string>& texts,
                                                   const std::string& command = "tvop run");

// What stands between the commas; at least one text.
std::vector<std::string> splitAtCommas(const std::string& text);

}  // namespace Tavro::Tool
