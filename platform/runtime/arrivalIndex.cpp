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
  IndexEntry::Owner entry = IndexEntry::make<Entry>(row, arrival);
  if (hasLookup_) addToLookup(*entry);
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
  if (hasLookup_) byHash_.erase(static_cast<Entry&>(entry));
}

void ArrivalIndex::buildLookup() {
  try {
    for (IndexEntry* entry = first(); entry != nullptr; entry = entry->next) addToLookup(*entry);
  } catch (...) {
    byHash_.clear();
    throw;
  }
  hasLookup_ = true;
}

void ArrivalIndex::addToLookup(IndexEntry& entry) {
  KeyBuffer key;
  encoder_.append(entry.row, key);
  entry.high = hashBytes(key.bytes(), key.size());
  byHash_.insert(static_cast<Entry&>(entry));
}

}  // namespace Tavro
