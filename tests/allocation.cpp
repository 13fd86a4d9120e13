#include "allocation.h"

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <new>

// The sanitizer has to see every block too.
#if defined(__SANITIZE_ADDRESS__)
#define TVOP_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TVOP_ADDRESS_SANITIZER
#endif
#endif
#ifdef TVOP_ADDRESS_SANITIZER
#define UNDERLYING(function) __interceptor_##function
#else
#define UNDERLYING(function) __libc_##function
#endif

extern "C" {
void* UNDERLYING(malloc)(std::size_t size);
void* UNDERLYING(calloc)(std::size_t count, std::size_t size);
void* UNDERLYING(realloc)(void* block, std::size_t size);
void UNDERLYING(free)(void* block);
}

namespace {

std::size_t blocks = 0;
std::size_t countdown = 0;

// Every block is to be counted, and can fail.
[[maybe_unused]] const int hasPlainBlocks = setenv("TAVRO_PLAIN_BLOCKS", "1", 1);

bool fails() {
  if (countdown == 0 || --countdown != 0) return false;
  errno = ENOMEM;
  return true;
}

void* counted(void* block) {
  if (block != nullptr) ++blocks;
  return block;
}

}  // namespace

extern "C" {
void* malloc(std::size_t size) noexcept { return fails() ? nullptr : counted(UNDERLYING(malloc)(size)); }
void* calloc(std::size_t count, std::size_t size) noexcept {
  return fails() ? nullptr : counted(UNDERLYING(calloc)(count, size));
}
void* realloc(void* block, std::size_t size) noexcept {
  if (fails()) return nullptr;
  void* const moved = UNDERLYING(realloc)(block, size);
  return block == nullptr ? counted(moved) : moved;
}
void free(void* block) noexcept {
  if (block != nullptr) --blocks;
  UNDERLYING(free)(block);
}
}

void* operator new(std::size_t size) {
  void* const block = malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return malloc(size == 0 ? 1 : size); }
void operator delete(void* block) noexcept { free(block); }
void operator delete(void* block, std::size_t) noexcept { free(block); }

namespace Tavro::allocation {

std::size_t inUse() { return blocks; }

Outcome attempt(std::size_t failing, const std::function<void()>& work) {
  Outcome outcome{false, false};
  countdown = failing;
  try {
    work();
  } catch (const std::exception&) {
    outcome.hasThrown = true;
  }
  outcome.hasFailed = failing != 0 && countdown == 0;
  countdown = 0;
  return outcome;
}

}  // namespace Tavro::allocation
