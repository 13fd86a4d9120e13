#pragma once

#include <memory>

namespace Tavro {

// The shared-ownership handle of the system.
template <typename T>
using TvPtr = std::shared_ptr<T>;

}  // namespace Tavro
