#include "arrivalIndex.h"

#include <algorithm>
#include <utility>

#include "hash.h"

namespace Tavro {

ArrivalIndex::ArrivalIndex(unsigned number, const std::vector<tvMetadata::tvColumn>& columns,
                           len_t fixedLength)
    : IndexBase(columns.front().tableName(), number, false),
      shape_(columns, fixedLength),
      encoder_(columns) {}

IndexEntry* ArrivalIndex::insert(const BaseRow& row, std::uint64_t arrival) {
  const std::uint64_t hash = hasLookup_ ? hashOf(row) : 0;
  IndexEntry::Owner entry = IndexEntry::make(row, arrival, HashedEntries::key(hash, arrival));
  if (hasLookup_) byHash_.insert(*entry);
  return link(std::move(entry), nullptr);
}

IndexEntry* ArrivalIndex::find(const BaseRow& row) {
  if (row.isNull()) throw TvNullRow();
  shape_.require(row);
  if (!hasLookup_) buildLookup();
  KeyBuffer wanted;
  encoder_.append(row, wanted);
  return byHash_.find(hashBytes(wanted.bytes(), wanted.size()), [&](const BaseRow& candidate) {
    KeyBuffer found;
    encoder_.append(candidate, found);
    return std::equal(wanted.bytes(), wanted.bytes() + wanted.size(), found.bytes(),
                      found.bytes() + found.size());
  });
}

IndexEntry* ArrivalIndex::lowerBound(const BaseRow&) { throwNoOrder(); }

void ArrivalIndex::forget(IndexEntry& entry) noexcept {
  if (hasLookup_) byHash_.erase(entry);
}

void ArrivalIndex::buildLookup() {
  try {
    for (IndexEntry* entry = first(); entry != nullptr; entry = entry->next) {
      entry->high = hashOf(entry->row);
      byHash_.insert(*entry);
    }
  } catch (...) {
    byHash_.clear();
    throw;
  }
  hasLookup_ = true;
}

std::uint64_t ArrivalIndex::hashOf(const BaseRow& row) const {
  KeyBuffer key;
  encoder_.append(row, key);
  return hashBytes(key.bytes(), key.size());
}

}  // namespace Tavro
