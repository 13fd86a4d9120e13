#pragma once

#include "entryTree.h"

namespace Tavro {

// Entries of an index without an order, found by a hash of their rows; entries of one hash in order of
// arrival. Their keys are made by `key`.
class HashedEntries {
 public:
  static EncodedKey key(std::uint64_t hash, std::uint64_t arrival) {
    return {hash, arrival, keyHeadLength, nullptr};
  }

  // The first entry of that hash for whose row `matches` says so, or null. Passes on what `matches` throws.
  template <typename Matches>
  IndexEntry* find(std::uint64_t hash, const Matches& matches) const {
    IndexEntry* candidate = tree_.lowerBound(key(hash, 0));
    while (candidate != nullptr && candidate->high == hash) {
      if (matches(candidate->row)) return candidate;
      // The key keeps the number of the row that came first, while `arrival` is that of a row in its place.
      candidate = tree_.lowerBound(key(hash, candidate->low + 1));
    }
    return nullptr;
  }
  // Throws std::bad_alloc; nothing is added then.
  void insert(IndexEntry& entry) { tree_.insert(entry); }
  void erase(IndexEntry& entry) noexcept { tree_.erase(entry); }
  void clear() noexcept { tree_.clear(); }

 private:
  EntryTree tree_;
};

}  // namespace Tavro
