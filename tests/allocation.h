#pragma once

#include <cstddef>
#include <functional>

// All memory that this program and its libraries take, whatever they take it by.
namespace Tavro::allocation {

// Blocks in use.
std::size_t inUse();

// Does `work` while the allocation number `failing` from here fails, 1 being the first; 0 for none. What the
// work throws is taken.
struct Outcome {
  // False when there were not so many allocations.
  bool hasFailed;
  bool hasThrown;
};
Outcome attempt(std::size_t failing, const std::function<void()>& work);

}  // namespace Tavro::allocation
