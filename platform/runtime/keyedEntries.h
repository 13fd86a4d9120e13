#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <memory>

#include "indexEntry.h"

namespace Tavro {

// Entries found by their whole keys, which must all differ. A lookup waits for far memory twice, for a bucket
// and for the entry itself, where a tree waits at every level. It points at entries and does not own them.
class KeyedEntries {
 public:
  // Null when there is no entry of that key.
  KeyedEntry* find(const EncodedKey& key) const;
  // The same for a key of at most 8 bytes, where all keys are, as KeyEncoder::shortKey gives it.
  KeyedEntry* findShort(std::uint64_t key) const;
  // Makes room for one more entry. Throws std::bad_alloc.
  void reserve();
  // There must be room.
  void insert(KeyedEntry& entry) noexcept;
  // The entry must be here.
  void erase(KeyedEntry& entry) noexcept;
  void clear() noexcept;

 private:
  static constexpr unsigned places = 7;

  // As large as a line of the cache, with as many entries as it takes: the fewer lines there are, the more of
  // them stay near.
  struct alignas(64) Bucket {
    // A byte for each place: a few bits of the entry's hash, so that others are seldom touched, or 0. In the
    // last byte how many entries found no place here and stand further on, or `manyPassed`.
    std::uint64_t marks;
    std::array<KeyedEntry*, places> entries;

    std::uint64_t passed() const { return marks >> markBits * places; }
    void passedIs(std::uint64_t count) { marks = (marks & markMask) | count << markBits * places; }
    void markIs(unsigned place, std::uint64_t mark) {
      marks = (marks & ~(std::uint64_t{manyPassed} << markBits * place)) | mark << markBits * place;
    }
  };
  static constexpr unsigned markBits = 8;
  static constexpr std::uint64_t markMask = ~std::uint64_t{0} >> markBits;
  // So many that they are no longer counted.
  static constexpr unsigned manyPassed = 255;

  // Places of a bucket, one after the other.
  class Places {
   public:
    // Those of that mark.
    Places(const Bucket& bucket, std::uint64_t mark);
    bool areLeft() const { return bits_ != 0; }
    unsigned first() const { return static_cast<unsigned>(std::countr_zero(bits_)) / markBits; }
    void dropFirst() { bits_ &= bits_ - 1; }

   private:
    std::uint64_t bits_;
  };

  template <typename IsKey>
  KeyedEntry* find(std::uint64_t hash, const IsKey& isKey) const;
  static std::uint64_t hashOf(const EncodedKey& key);
  static std::uint64_t markOf(std::uint64_t hash);
  Bucket& begin(std::uint64_t hash) const { return buckets_[static_cast<std::size_t>(hash) & mask_]; }
  Bucket& next(const Bucket& bucket) const {
    return buckets_[static_cast<std::size_t>(&bucket - buckets_ + 1) & mask_];
  }
  void put(KeyedEntry& entry) noexcept;

  // A power of two of buckets. An entry stands in the first that had a free place, from the one on that its
  // hash points to.
  std::unique_ptr<unsigned char[]> memory_;
  Bucket* buckets_ = nullptr;
  std::size_t mask_ = 0;
  std::size_t limit_ = 0;
  std::size_t count_ = 0;
};

}  // namespace Tavro
