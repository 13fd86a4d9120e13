#include "orderedIndex.h"

#include <utility>

namespace Tavro {

OrderedIndex::OrderedIndex(unsigned number, const std::vector<tvMetadata::tvColumn>& columns,
                           len_t fixedLength, bool unique)
    : LinkedIndex(columns.front().tableName(), number, unique),
      shape_(columns, fixedLength),
      encoder_(columns) {}

IndexEntry* OrderedIndex::insert(const BaseRow& row, std::uint64_t arrival) {
  KeyBuffer key;
  encoder_.append(row, key);
  if (!isUnique()) key.appendNumber(arrival);
  LinkedEntry::Owner entry = KeyedEntry::make(row, arrival, key.key());
  if (hasLookup_) byKey_.reserve();
  IndexEntry* const behind = tree_.insert(*entry, key.key());
  if (hasLookup_) byKey_.insert(static_cast<KeyedEntry&>(*entry));
  return link(std::move(entry), behind);
}

IndexEntry* OrderedIndex::find(const BaseRow& row) {
  requireProbe(row);
  if (isUnique() && !hasLookup_) [[unlikely]]
    buildLookup();
  return findProbe(row);
}

IndexEntry* OrderedIndex::findForChange(const BaseRow& row) {
  requireProbe(row);
  return findProbe(row);
}

inline IndexEntry* OrderedIndex::findProbe(const BaseRow& row) const {
  if (hasLookup_ && encoder_.isShort()) return byKey_.findShort(encoder_.shortKey(row));
  return findLong(row);
}

IndexEntry* OrderedIndex::findLong(const BaseRow& row) const {
  KeyBuffer key;
  encoder_.append(row, key);
  return find(key);
}

IndexEntry* OrderedIndex::find(KeyBuffer& key) const {
  if (hasLookup_) return byKey_.find(key.key());
  if (!isUnique()) key.appendNumber(0);
  IndexEntry* const found = tree_.lowerBound(key.key());
  if (found == nullptr) return nullptr;
  // Equal columns: the key differs in the number of arrival alone.
  if (!isUnique()) key.lastNumberIs(arrivalOf(*found));
  return static_cast<KeyedEntry&>(*found).key() == key.key() ? found : nullptr;
}

IndexEntry* OrderedIndex::lowerBound(const BaseRow& row) {
  requireProbe(row);
  KeyBuffer key;
  encoder_.append(row, key);
  return tree_.lowerBound(key.key());
}

void OrderedIndex::forget(LinkedEntry& entry) noexcept {
  auto& keyed = static_cast<KeyedEntry&>(entry);
  tree_.erase(keyed.key());
  if (hasLookup_) byKey_.erase(keyed);
}

void OrderedIndex::buildLookup() {
  try {
    for (IndexEntry* entry = first(); entry != nullptr; entry = next(*entry)) {
      byKey_.reserve();
      byKey_.insert(static_cast<KeyedEntry&>(*entry));
    }
  } catch (...) {
    byKey_.clear();
    throw;
  }
  hasLookup_ = true;
}

}  // namespace Tavro
