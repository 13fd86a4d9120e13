#pragma once

#include "Tavro/export.h"

namespace Tavro {

// Prints "Assertion `CONDITION' failed in FUNCTION." on standard error and aborts.
[[noreturn]] TAVRO_EXPORT void assertionFailed(const char* condition, const char* function);

// An assertion on a programmer's mistake, kept in every build type. `condition` is the text printed.
inline void assertThat(bool holds, const char* condition, const char* function) {
  if (!holds) [[unlikely]]
    assertionFailed(condition, function);
}

}  // namespace Tavro
