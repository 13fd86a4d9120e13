#include "indexEntry.h"

#include <new>

#include "Tavro/blockPool.h"

namespace Tavro {

IndexEntry::IndexEntry(const BaseRow& storedRow, std::uint64_t arrivalNumber, const EncodedKey& key)
    : row(storedRow), arrival(arrivalNumber), high(key.high), low(key.low), keyLength(key.length) {}

IndexEntry::Owner IndexEntry::make(const BaseRow& row, std::uint64_t arrival, const EncodedKey& key) {
  const std::size_t tailLength = key.length > keyHeadLength ? key.length - keyHeadLength : 0;
  void* const memory = takeBlock(sizeof(IndexEntry) + tailLength);
  auto* const entry = new (memory) IndexEntry(row, arrival, key);
  if (tailLength != 0) std::memcpy(static_cast<void*>(entry + 1), key.tail, tailLength);
  return Owner(entry);
}

void IndexEntry::Deleter::operator()(IndexEntry* entry) const noexcept {
  entry->~IndexEntry();
  giveBlockBack(entry);
}

}  // namespace Tavro
