#pragma once

#include <vector>

#include "Tavro/tvMetadata.h"
#include "hashedEntries.h"
#include "index.h"
#include "keyEncoder.h"
#include "rowShape.h"

namespace Tavro {

// Rows in order of arrival, which admits equal ones. A lookup matches the first row that is equal in all
// columns; what it needs is built when the first one asks for it.
class ArrivalIndex : public IndexBase {
 public:
  ArrivalIndex(unsigned number, const std::vector<tvMetadata::tvColumn>& columns, len_t fixedLength);

  bool takes(const BaseRow& row) const override { return shape_.fits(row); }
  IndexEntry* insert(const BaseRow& row, std::uint64_t arrival) override;
  IndexEntry* find(const BaseRow& key) override;
  IndexEntry* lowerBound(const BaseRow& key) override;

 private:
  // Found by the hash of its row, which it holds once there has been a lookup.
  struct Entry : IndexEntry {
    using IndexEntry::IndexEntry;
    EncodedKey key() const { return hashKey(high, arrival); }
  };

  void forget(IndexEntry& entry) noexcept override;
  void buildLookup();
  void addToLookup(IndexEntry& entry);

  RowShape shape_;
  KeyEncoder encoder_;
  // By all columns. Empty until the first lookup.
  HashedEntries<Entry> byHash_;
  bool hasLookup_ = false;
};

}  // namespace Tavro
