#pragma once

#include <cstddef>
#include <memory>

#include "indexEntry.h"

namespace Tavro {

// Entries found by their whole keys, which must all differ. A lookup waits for far memory once, for the entry
// itself, where a tree waits at every level. It points at entries and does not own them.
class KeyedEntries {
 public:
  // Null when there is no entry of that key.
  KeyedEntry* find(const EncodedKey& key) const;
  // Makes room for one more entry. Throws std::bad_alloc.
  void reserve();
  // There must be room.
  void insert(KeyedEntry& entry) noexcept;
  // The entry must be here.
  void erase(KeyedEntry& entry) noexcept;
  void clear() noexcept;

 private:
  // What is compared before an entry is touched; its low bits say where a search begins. 0 is for free
  // places.
  using Tag = std::uint32_t;

  static Tag tagOf(const EncodedKey& key);
  std::size_t begin(Tag tag) const { return tag & mask_; }
  std::size_t next(std::size_t i) const { return (i + 1) & mask_; }
  void put(Tag tag, KeyedEntry* entry) noexcept;

  // An entry stands in the first place that was free from where its tag points to, so there is no gap on the
  // way. Tags stand close together, that they may stay in the cache. A power of two of places.
  std::unique_ptr<Tag[]> tags_;
  std::unique_ptr<KeyedEntry*[]> entries_;
  std::size_t mask_ = 0;
  std::size_t limit_ = 0;
  std::size_t count_ = 0;
};

}  // namespace Tavro
