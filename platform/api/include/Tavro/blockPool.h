#pragma once

#include <cstddef>

#include "Tavro/export.h"

// Memory for what tables hold by the million: rows, and their places in indexes. Small blocks are cut one
// behind the other from chunks that every thread has for itself, so a row and its places stand side by side;
// a chunk whose blocks have all been given back is freed. When TAVRO_PLAIN_BLOCKS stands in the environment,
// and in a build with a sanitizer that watches memory, every block is an allocation of its own.
namespace Tavro {

// A block of `size` bytes, 16 at least, not initialised, for what needs an alignment of 8 at most. The caller
// owns it. Throws std::bad_alloc.
TAVRO_EXPORT void* takeBlock(std::size_t size);

// Gives a block of takeBlock back, from any thread.
TAVRO_EXPORT void giveBlockBack(void* block) noexcept;

}  // namespace Tavro
