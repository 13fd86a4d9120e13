#pragma once

#include "entryTree.h"

namespace Tavro {

// The key by which HashedEntries find an entry.
inline EncodedKey hashKey(std::uint64_t hash, std::uint64_t arrival) {
  return {hash, arrival, keyHeadLength, nullptr};
}

// Entries of an index without an order, found by a hash of their rows; entries of one hash in order of
// arrival. `Entry` is the type of all of them, whose `key` is one of `hashKey`.
template <typename Entry>
class HashedEntries {
 public:
  // The first entry of that hash for whose row `matches` says so, or null. Passes on what `matches` throws.
  template <typename Matches>
  IndexEntry* find(std::uint64_t hash, const Matches& matches) const {
    for (std::uint64_t arrival = 0;;) {
      IndexEntry* const candidate = tree_.lowerBound(hashKey(hash, arrival));
      if (candidate == nullptr) return nullptr;
      const EncodedKey key = static_cast<const Entry&>(*candidate).key();
      if (key.high != hash) return nullptr;
      if (matches(candidate->row)) return candidate;
      arrival = key.low + 1;
    }
  }
  // Throws std::bad_alloc; nothing is added then.
  void insert(Entry& entry) { tree_.insert(entry, entry.key()); }
  void erase(const Entry& entry) noexcept { tree_.erase(entry.key()); }
  void clear() noexcept { tree_.clear(); }

 private:
  EntryTree tree_;
};

}  // namespace Tavro
