#include <cstdlib>
#include <new>

#include "support.h"

namespace {
std::size_t blocks = 0;
std::size_t countdownToFailure = 0;

// Every block is to be counted, and can fail.
[[maybe_unused]] const int hasPlainBlocks = setenv("TAVRO_PLAIN_BLOCKS", "1", 1);
}  // namespace

std::size_t Tavro::allocation::inUse() { return blocks; }
void Tavro::allocation::failAt(std::size_t countdown) { countdownToFailure = countdown; }

void* operator new(std::size_t size) {
  if (countdownToFailure > 0 && --countdownToFailure == 0) throw std::bad_alloc();
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  ++blocks;
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  --blocks;
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
