#pragma once

#include <map>
#include <string>
#include <unordered_map>

#include "program.h"

namespace Tavro::Tool {

// The map that a client gives to the library: parameter values and table path overrides.
using ClientMap = std::unordered_map<std::string, std::string>;

// Makes the map out of what --param says. Throws Failure for a name that is neither a parameter nor a table
// path of the program, and for a text that is no value of its parameter.
ClientMap makeClientMap(const Program& program, const std::map<std::string, std::string>& given);

}  // namespace Tavro::Tool
