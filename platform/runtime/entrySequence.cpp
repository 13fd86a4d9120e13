#include "entrySequence.h"

#include <bit>
#include <utility>

namespace Tavro {
namespace {

// A block that has come down to so many entries looks for a neighbour that it can be merged with.
constexpr unsigned fewEntries = 32;

}  // namespace

EntrySequence::Block& EntrySequence::blockOf(const LinkedEntry& entry) {
  return *std::bit_cast<Block*>(static_cast<std::uintptr_t>(entry.high));
}

EntrySequence::Blocks::iterator EntrySequence::placeOf(const Block& block) {
  return std::find_if(blocks_.begin(), blocks_.end(),
                      [&](const std::unique_ptr<Block>& candidate) { return candidate.get() == &block; });
}

unsigned EntrySequence::Block::positionOf(const LinkedEntry& entry) const {
  return static_cast<unsigned>(std::find(begin(), end(), &entry) - begin());
}

void EntrySequence::Block::insert(unsigned at, LinkedEntry& entry) {
  std::copy_backward(entries.begin() + at, entries.begin() + count, entries.begin() + count + 1);
  entries[at] = &entry;
  entry.high = reinterpret_cast<std::uintptr_t>(this);
  ++count;
}

void EntrySequence::Block::removeAt(unsigned at) {
  std::copy(entries.begin() + at + 1, entries.begin() + count, entries.begin() + at);
  --count;
}

void EntrySequence::Block::take(Block& from, unsigned first) {
  for (unsigned i = first; i < from.count; ++i) {
    entries[count++] = from.entries[i];
    from.entries[i]->high = reinterpret_cast<std::uintptr_t>(this);
  }
  from.count = first;
}

void EntrySequence::insert(LinkedEntry& entry, LinkedEntry* behind) {
  if (blocks_.empty()) blocks_.push_back(std::make_unique<Block>());
  Block* block = behind == nullptr ? blocks_.back().get() : &blockOf(*behind);
  unsigned at = behind == nullptr ? block->count : block->positionOf(*behind);
  if (block->count == capacity) {
    // Entries that arrive in order leave full blocks behind them.
    const unsigned kept = at == capacity ? capacity : capacity / 2;
    Block& right = **blocks_.insert(placeOf(*block) + 1, std::make_unique<Block>());
    right.take(*block, kept);
    if (at == capacity || at > kept) {
      block = &right;
      at -= kept;
    }
  }
  block->insert(at, entry);
}

void EntrySequence::erase(LinkedEntry& entry) noexcept {
  Block& block = blockOf(entry);
  block.removeAt(block.positionOf(entry));
  if (block.count == 0)
    blocks_.erase(placeOf(block));
  else if (block.count == fewEntries)
    mergeAt(placeOf(block));
}

void EntrySequence::mergeAt(Blocks::iterator block) {
  const auto merge = [this](Blocks::iterator left) {
    const auto right = left + 1;
    if ((*left)->count + (*right)->count > capacity / 2) return false;
    (*left)->take(**right, 0);
    blocks_.erase(right);
    return true;
  };
  if (block != blocks_.begin() && merge(block - 1)) return;
  if (block + 1 != blocks_.end()) merge(block);
}

}  // namespace Tavro
