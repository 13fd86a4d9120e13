#pragma once

#include <cstddef>
#include <string>

#include "Tavro/TvRTContext.h"

namespace Tavro::Tool {

// What came of assembling a text.
struct LoadOutcome {
  TvRT::OwnedContext context;  // null when the load was ended by an exception
  std::string fault;           // the first thing found wrong; empty for none
};

// Assembles the text and keeps its messages to itself.
LoadOutcome tryLoad(const TvPtr<TavroDB>& database, const std::string& text);

// The line, from 1, at which assembling `text` comes to `fault`, which is what tryLoad says of the text.
std::size_t lineOfFault(const TvPtr<TavroDB>& database, const std::string& text, const std::string& fault);

}  // namespace Tavro::Tool
