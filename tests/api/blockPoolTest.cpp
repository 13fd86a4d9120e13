#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <thread>
#include <vector>

#include "Tavro/blockPool.h"

namespace Tavro {
namespace {

constexpr std::size_t chunk = 65536;

std::size_t bytesInUse() { return mallinfo2().uordblks; }

std::vector<void*> takeMany(std::size_t count, std::size_t size) {
  std::vector<void*> blocks(count);
  for (void*& block : blocks) block = takeBlock(size);
  return blocks;
}
void giveAllBack(const std::vector<void*>& blocks) {
  for (void* const block : blocks) giveBlockBack(block);
}

// Every block holds bytes of its own, which nobody else writes to, from the first to the last.
TEST(BlockPool, BlocksDoNotOverlapAndTheirMemoryGoesBack) {
  struct Block {
    unsigned char* bytes;
    std::size_t size;
    unsigned char mark;

    bool isIntact() const {
      return std::all_of(bytes, bytes + size, [this](unsigned char byte) { return byte == mark; });
    }
  };
  std::mt19937 random(7);
  std::vector<Block> blocks;
  const std::size_t before = bytesInUse();
  for (unsigned step = 0; step < 60000; ++step) {
    const bool growing = step / 10000 % 2 == 0;
    if (blocks.empty() || random() % 8 < (growing ? 7U : 1U)) {
      const std::size_t size = 16 + (random() % 16 == 0 ? random() % 700 : random() % 120);
      const auto mark = static_cast<unsigned char>(step);
      auto* const bytes = static_cast<unsigned char*>(takeBlock(size));
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % 8, 0U);
      std::fill_n(bytes, size, mark);
      blocks.push_back({bytes, size, mark});
    } else {
      std::swap(blocks[random() % blocks.size()], blocks.back());
      ASSERT_TRUE(blocks.back().isIntact());
      giveBlockBack(blocks.back().bytes);
      blocks.pop_back();
    }
  }
  for (const Block& block : blocks) {
    ASSERT_TRUE(block.isIntact());
    giveBlockBack(block.bytes);
  }
  blocks = {};
  EXPECT_LT(bytesInUse(), before + 4 * chunk);
}

// A few blocks that stay do not keep the room of all those that came between them from being used again.
TEST(BlockPool, TheRoomBetweenBlocksThatStayIsUsedAgain) {
  std::vector<void*> staying;
  const std::size_t before = bytesInUse();
  for (unsigned round = 0; round < 200; ++round) {
    std::vector<void*> passing = takeMany(2000, 80);
    staying.push_back(passing.back());
    passing.pop_back();
    giveAllBack(passing);
  }
  EXPECT_LT(bytesInUse(), before + 8 * chunk);
  giveAllBack(staying);
}

TEST(BlockPool, BlocksMayBeGivenBackByAnyThread) {
  const std::size_t before = bytesInUse();
  for (unsigned round = 0; round < 50; ++round) {
    // Of this thread, by another one that has blocks of its own.
    const std::vector<void*> ours = takeMany(2000, 64);
    std::vector<void*> theirs;
    std::thread([&] {
      theirs = takeMany(3000, 48);
      giveAllBack(ours);
    }).join();
    // Of a thread that has ended, by two at once.
    const auto middle = theirs.begin() + 1500;
    std::thread other([&] { giveAllBack({theirs.begin(), middle}); });
    giveAllBack({middle, theirs.end()});
    other.join();
  }
  EXPECT_LT(bytesInUse(), before + 8 * chunk);
}

}  // namespace
}  // namespace Tavro
