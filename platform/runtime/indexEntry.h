#pragma once

#include <memory>

#include "Tavro/baseRow.h"
#include "encodedKey.h"

namespace Tavro {

// One row's place in one index. Its address does not change as long as the row is stored, so iterators and
// trees point at it. The key's bytes behind the first 16 follow the object in its allocation.
struct IndexEntry {
  struct Deleter {
    void operator()(IndexEntry* entry) const noexcept;
  };
  using Owner = std::unique_ptr<IndexEntry, Deleter>;

  static Owner make(const BaseRow& row, std::uint64_t arrival, const EncodedKey& key);

  EncodedKey key() const { return {high, low, keyLength, reinterpret_cast<const unsigned char*>(this + 1)}; }

  BaseRow row;
  // The entries before and behind in the order of the index.
  IndexEntry* previous = nullptr;
  IndexEntry* next = nullptr;
  // The same row in the index of the next number; behind the last comes index 0 again.
  IndexEntry* inNextIndex = nullptr;
  // The row's number in order of arrival, from 1.
  std::uint64_t arrival;
  std::uint64_t high;
  std::uint64_t low;
  std::uint32_t keyLength;

 private:
  IndexEntry(const BaseRow& row, std::uint64_t arrival, const EncodedKey& key);
  ~IndexEntry() = default;
};

}  // namespace Tavro
