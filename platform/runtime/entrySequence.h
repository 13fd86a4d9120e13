#pragma once

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "indexEntry.h"

namespace Tavro {

// Entries in an order that only their owner knows: he says behind which ones an entry belongs, whatever his
// reasons, and the sequence stays sound even if he contradicts himself. It points at entries, keeps a note of
// its own in place of their key, and does not own them.
class EntrySequence {
 public:
  bool isEmpty() const { return blocks_.empty(); }
  // Of a sequence that is not empty.
  LinkedEntry& last() const { return *blocks_.back()->end()[-1]; }

  // The first entry for which `isBefore` does not hold, or null, found with about log2(n) questions. Passes
  // on what `isBefore` throws.
  template <typename IsBefore>
  LinkedEntry* firstNot(const IsBefore& isBefore) const {
    const auto behind = std::partition_point(blocks_.begin(), blocks_.end(),
                                             [&](const auto& block) { return isBefore(*block->entries[0]); });
    if (behind != blocks_.begin()) {
      const Block& block = *behind[-1];
      const auto found = std::partition_point(block.begin() + 1, block.end(),
                                              [&](const LinkedEntry* entry) { return isBefore(*entry); });
      if (found != block.end()) return *found;
    }
    return behind == blocks_.end() ? nullptr : (*behind)->entries[0];
  }

  // Puts the entry before `behind`, or last for null. Throws std::bad_alloc; nothing is added then.
  void insert(LinkedEntry& entry, LinkedEntry* behind);
  // The entry must be in the sequence.
  void erase(LinkedEntry& entry) noexcept;

 private:
  static constexpr unsigned capacity = 256;

  struct Block {
    LinkedEntry* const* begin() const { return entries.data(); }
    LinkedEntry* const* end() const { return entries.data() + count; }
    unsigned positionOf(const LinkedEntry& entry) const;
    void insert(unsigned at, LinkedEntry& entry);
    void removeAt(unsigned at);
    // Moves the entries of `from`, from number `first` on, behind the entries here.
    void take(Block& from, unsigned first);

    unsigned count = 0;
    std::array<LinkedEntry*, capacity> entries;
  };
  // None is empty.
  using Blocks = std::vector<std::unique_ptr<Block>>;

  static Block& blockOf(const LinkedEntry& entry);
  Blocks::iterator placeOf(const Block& block);
  void mergeAt(Blocks::iterator block);

  Blocks blocks_;
};

}  // namespace Tavro
