#pragma once

#include <array>
#include <ostream>

#include "Tavro/Kelpo.h"
#include "Tavro/export.h"

namespace Tavro::TvRT {

// The debug categories of this library, for clients that turn levels on by name.
inline constexpr std::array<const char*, 8> debugCategories{"Stack",        "IStream", "Context", "Loader",
                                                            "ValueAryIter", "Proxy",   "TvRtOp",  "TvRTOp"};

// Levels in use.
inline constexpr int traceFailures = 6;  // failure and resumption of a run
inline constexpr int traceEvents = 8;    // one line for most instructions and notifications
inline constexpr int traceDetail = 9;    // pushes, pops, the run loop, installation

// Where all instructions trace.
TAVRO_EXPORT extern Kelpo::DebugHandler* tvRtOpKelpoDebugHandler_;

// Whether code holds its trace sites. The path of an instruction is compiled both ways: while no level is on
// anywhere, the run loop takes the one that has none. Code that may be used at any time has them.
enum class Trace : bool { Off, On };

// The trace site of an instruction's execution.
template <Trace trace, typename... Parts>
inline void traceOp(const char* source, int line, const Parts&... parts) {
  if constexpr (trace == Trace::On)
    Kelpo::trace(tvRtOpKelpoDebugHandler_, traceEvents, source, line, "op", parts...);
}

}  // namespace Tavro::TvRT
