#include "Tavro/blockPool.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#define TAVRO_WATCHED_MEMORY true
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
#define TAVRO_WATCHED_MEMORY true
#endif
#endif
#ifndef TAVRO_WATCHED_MEMORY
#define TAVRO_WATCHED_MEMORY false
#endif

namespace Tavro {
namespace {

constexpr std::size_t granule = 8;
// Larger blocks are worth an allocation of their own.
constexpr std::size_t largestPooled = 512;
// The first chunks of a thread take 4, 8, 16 and 32 KB, the others 64, with what the C library puts in front.
constexpr std::size_t smallestChunk = 4096;
constexpr std::size_t doublings = 4;
constexpr std::size_t inFrontOfChunk = 16;

class Pool;

// Stands in front of every block, in the second half of a granule.
struct Head {
  // Of the block with its head, in granules.
  std::uint16_t size;
  // Of the head in its chunk, in granules; 0 for a block that has no chunk.
  std::uint16_t offset;
};
constexpr std::size_t headPlace = granule - sizeof(Head);

struct Chunk {
  Pool* pool;
  // Blocks that are not given back.
  std::uint32_t live;
  // How much of it blocks were cut from, in granules; known once that has come to its end.
  std::uint32_t used;
};
constexpr std::size_t chunkBegin = (sizeof(Chunk) + granule - 1) / granule;

// Stands in a block that was given back.
struct Free {
  Free* next;
  Free* previous;
};

Head* headOf(void* block) { return static_cast<Head*>(block) - 1; }
Head* headAt(void* memory, std::size_t offset) {
  return reinterpret_cast<Head*>(static_cast<unsigned char*>(memory) + offset * granule + headPlace);
}
void* memoryOf(Head* head) {
  return reinterpret_cast<unsigned char*>(head) - headPlace - head->offset * granule;
}
Chunk* chunkOf(Head* head) { return static_cast<Chunk*>(memoryOf(head)); }

void* takePlain(std::size_t size) {
  Head* const head = headAt(::operator new(granule + size), 0);
  head->offset = 0;
  return head + 1;
}

// The chunks of one thread. Blocks that other threads give back wait until this one needs a further chunk.
// Once the thread has ended, whoever gives a block back does the work; the pool goes with its last chunk.
class Pool {
 public:
  void* take(std::size_t size) {
    const std::size_t granules = (size + sizeof(Head) + granule - 1) / granule;
    if (Free* const block = free_[granules]; block != nullptr) {
      remove(*block, granules);
      ++chunkOf(headOf(block))->live;
      return block;
    }
    if (granules > left_) [[unlikely]]
      return takeFromNewChunk(size);
    const std::size_t offset = end_ - left_;
    Head* const head = headAt(current_, offset);
    *head = {static_cast<std::uint16_t>(granules), static_cast<std::uint16_t>(offset)};
    left_ -= granules;
    ++current_->live;
    return head + 1;
  }

  void giveBack(Head* head) noexcept {
    Chunk* const chunk = chunkOf(head);
    auto* const block = reinterpret_cast<Free*>(head + 1);
    Free*& first = free_[head->size];
    *block = {first, nullptr};
    if (first != nullptr) first->previous = block;
    first = block;
    if (--chunk->live == 0 && chunk != current_) [[unlikely]]
      release(chunk);
  }

  // A block that is given back by a thread that is not the pool's own.
  static void giveBackFrom(Pool* pool, Head* head) noexcept {
    std::unique_lock lock(pool->mutex_);
    if (!pool->isAbandoned_) {
      auto* const block = reinterpret_cast<Free*>(head + 1);
      block->next = std::exchange(pool->returned_, block);
      return;
    }
    pool->giveBack(head);
    const bool isEmpty = pool->chunks_ == 0;
    lock.unlock();
    if (isEmpty) delete pool;
  }

  static void abandon(Pool* pool) noexcept {
    std::unique_lock lock(pool->mutex_);
    pool->isAbandoned_ = true;
    pool->giveBackAll(std::exchange(pool->returned_, nullptr));
    pool->retireCurrent();
    const bool isEmpty = pool->chunks_ == 0;
    lock.unlock();
    if (isEmpty) delete pool;
  }

 private:
  void remove(Free& block, std::size_t granules) noexcept {
    (block.previous == nullptr ? free_[granules] : block.previous->next) = block.next;
    if (block.next != nullptr) block.next->previous = block.previous;
  }

  void giveBackAll(Free* block) noexcept {
    while (block != nullptr) giveBack(headOf(std::exchange(block, block->next)));
  }

  [[gnu::noinline]] void* takeFromNewChunk(std::size_t size) {
    const std::size_t chunkSize = (smallestChunk << std::min(chunks_, doublings)) - inFrontOfChunk;
    auto* const chunk = static_cast<Chunk*>(::operator new(chunkSize));
    *chunk = {this, 0, 0};
    ++chunks_;
    retireCurrent();
    current_ = chunk;
    end_ = (chunkSize - headPlace) / granule;
    left_ = end_ - chunkBegin;
    {
      const std::lock_guard lock(mutex_);
      giveBackAll(std::exchange(returned_, nullptr));
    }
    return take(size);
  }

  // Nothing more is cut from the present chunk.
  void retireCurrent() noexcept {
    Chunk* const chunk = std::exchange(current_, nullptr);
    if (chunk == nullptr) return;
    chunk->used = static_cast<std::uint32_t>(end_ - std::exchange(left_, 0));
    if (chunk->live == 0) release(chunk);
  }

  // All of its blocks have been given back.
  void release(Chunk* chunk) noexcept {
    for (std::size_t offset = chunkBegin; offset < chunk->used;) {
      Head* const head = headAt(chunk, offset);
      remove(*reinterpret_cast<Free*>(head + 1), head->size);
      offset += head->size;
    }
    ::operator delete(chunk);
    --chunks_;
  }

  // By size in granules.
  std::array<Free*, largestPooled / granule + 2> free_{};
  // What blocks are cut from; where it ends and how much of it is left, in granules.
  Chunk* current_ = nullptr;
  std::size_t end_ = 0;
  std::size_t left_ = 0;
  std::size_t chunks_ = 0;

  std::mutex mutex_;
  Free* returned_ = nullptr;
  bool isAbandoned_ = false;
};

// Not a thread-local object with a destructor, since rows go until the very end of a thread.
[[gnu::tls_model("initial-exec")]] thread_local Pool* ownPool = nullptr;
[[gnu::tls_model("initial-exec")]] thread_local bool isPlain = false;

struct PoolOwner {
  PoolOwner() = default;
  PoolOwner(const PoolOwner&) = delete;
  PoolOwner& operator=(const PoolOwner&) = delete;
  ~PoolOwner() {
    isPlain = true;
    Pool::abandon(std::exchange(ownPool, nullptr));
  }
};

[[gnu::noinline]] void* takeFirst(std::size_t size) {
  static const bool isForcedPlain = TAVRO_WATCHED_MEMORY || std::getenv("TAVRO_PLAIN_BLOCKS") != nullptr;
  isPlain = isPlain || isForcedPlain;
  if (isPlain) return takePlain(size);
  auto pool = std::make_unique<Pool>();
  thread_local const PoolOwner owner;
  ownPool = pool.release();
  return ownPool->take(size);
}

}  // namespace

void* takeBlock(std::size_t size) {
  if (size > largestPooled) [[unlikely]]
    return takePlain(size);
  if (ownPool == nullptr) [[unlikely]]
    return takeFirst(size);
  return ownPool->take(size);
}

void giveBlockBack(void* block) noexcept {
  Head* const head = headOf(block);
  if (head->offset == 0) return ::operator delete(memoryOf(head));
  Pool* const pool = chunkOf(head)->pool;
  if (pool == ownPool) [[likely]]
    return pool->giveBack(head);
  Pool::giveBackFrom(pool, head);
}

}  // namespace Tavro
