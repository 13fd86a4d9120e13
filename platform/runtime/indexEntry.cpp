#include "indexEntry.h"

namespace Tavro {

KeyedEntry::KeyedEntry(const BaseRow& storedRow, std::uint64_t arrivalNumber, const EncodedKey& key)
    : LinkedEntry(storedRow, arrivalNumber), low(key.low), keyLength(key.length) {
  high = key.high;
}

LinkedEntry::Owner KeyedEntry::make(const BaseRow& row, std::uint64_t arrival, const EncodedKey& key) {
  const std::size_t tailLength = key.length > keyHeadLength ? key.length - keyHeadLength : 0;
  auto* const entry = new (takeBlock(sizeof(KeyedEntry) + tailLength)) KeyedEntry(row, arrival, key);
  if (tailLength != 0) std::memcpy(static_cast<void*>(entry + 1), key.tail, tailLength);
  return Owner(entry);
}

}  // namespace Tavro
