#pragma once

#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "program.h"

namespace Tavro::Tool {

// The map that a client gives to the library: parameter values and table path overrides.
using ClientMap = std::unordered_map<std::string, std::string>;

// Makes the map of one program out of what --param says; the names that it takes go into `taken`. Throws
// Failure for a text that is no value of its parameter.
ClientMap makeClientMap(const Program& program, const std::map<std::string, std::string>& given,
                        std::set<std::string>& taken);

}  // namespace Tavro::Tool
