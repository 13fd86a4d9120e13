#pragma once

#include <memory>
#include <new>
#include <utility>

#include "Tavro/baseRow.h"
#include "Tavro/blockPool.h"
#include "encodedKey.h"

namespace Tavro {

// One row's place in one index. Its address does not change as long as the row is stored, so iterators and
// trees point at it. What else there is of it is its index's own.
struct IndexEntry {
  explicit IndexEntry(const BaseRow& storedRow) : row(storedRow) {}
  explicit IndexEntry(BaseRow&& storedRow) : row(std::move(storedRow)) {}

  BaseRow row;

 protected:
  ~IndexEntry() = default;
};

// An entry of an index whose order is a list.
struct LinkedEntry : IndexEntry {
  struct Deleter {
    void operator()(LinkedEntry* entry) const noexcept {
      entry->~LinkedEntry();
      giveBlockBack(entry);
    }
  };
  using Owner = std::unique_ptr<LinkedEntry, Deleter>;

  static Owner make(const BaseRow& row, std::uint64_t arrival) {
    return Owner(new (takeBlock(sizeof(LinkedEntry))) LinkedEntry(row, arrival));
  }

  // What a lookup touches comes first, behind the row: the first 8 bytes of the entry's key as a number, or
  // whatever else its index finds it by.
  std::uint64_t high;
  // The entries before and behind in the order of the index.
  LinkedEntry* previous;
  LinkedEntry* next;
  // The same row in the index of the next number; behind the last comes index 0 again.
  IndexEntry* inNextIndex;
  // The row's number in order of arrival, from 1.
  std::uint64_t arrival;

 protected:
  // What else there is, its index sets.
  LinkedEntry(const BaseRow& storedRow, std::uint64_t arrivalNumber)
      : IndexEntry(storedRow), arrival(arrivalNumber) {}
  ~LinkedEntry() = default;
};

// An entry that is found by a key. The key's bytes behind the first 16 follow the object in its block.
struct KeyedEntry : LinkedEntry {
  static Owner make(const BaseRow& row, std::uint64_t arrival, const EncodedKey& key);

  EncodedKey key() const { return {high, low, keyLength, reinterpret_cast<const unsigned char*>(this + 1)}; }
  // A key of 8 bytes at most is known by them: no key begins another one.
  bool hasKey(const EncodedKey& other) const {
    return high == other.high && (other.length <= sizeof high || key() == other);
  }

  std::uint64_t low;
  std::uint32_t keyLength;

 private:
  KeyedEntry(const BaseRow& row, std::uint64_t arrival, const EncodedKey& key);
  ~KeyedEntry() = default;
};

}  // namespace Tavro
