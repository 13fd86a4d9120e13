#pragma once

#include <vector>

#include "Tavro/tvMetadata.h"
#include "entryTree.h"
#include "keyEncoder.h"
#include "keyedEntries.h"
#include "linkedIndex.h"
#include "rowShape.h"

namespace Tavro {

// Rows in the order of some columns; equal rows in order of arrival, unless the index is unique.
class OrderedIndex : public LinkedIndex {
 public:
  OrderedIndex(unsigned number, const std::vector<tvMetadata::tvColumn>& columns, len_t fixedLength,
               bool unique);

  bool takes(const BaseRow& row) const override { return shape_.fits(row); }
  IndexEntry* insert(const BaseRow& row, std::uint64_t arrival) override;
  IndexEntry* find(const BaseRow& key) override;
  IndexEntry* findForChange(const BaseRow& row) override;
  IndexEntry* lowerBound(const BaseRow& key) override;

 private:
  void forget(LinkedEntry& entry) noexcept override;

  void buildLookup();
  void requireProbe(const BaseRow& row) const {
    if (row.isNull()) [[unlikely]]
      throw TvNullRow();
    shape_.require(row);
  }
  // The first entry whose columns are those of `row`, which has them, or null.
  IndexEntry* findProbe(const BaseRow& row) const;
  IndexEntry* findLong(const BaseRow& row) const;
  // The same for the part of the key that the columns make.
  IndexEntry* find(KeyBuffer& key) const;

  RowShape shape_;
  KeyEncoder encoder_;
  // Where equal rows are admitted, the number of arrival stands behind the columns in every key.
  EntryTree tree_;
  // The same entries for `find`, in a unique index, once the first lookup has asked for it.
  KeyedEntries byKey_;
  bool hasLookup_ = false;
};

}  // namespace Tavro
