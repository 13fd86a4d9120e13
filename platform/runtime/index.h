#pragma once

#include <cstdint>
#include <string>

#include "Tavro/tavroDb.h"
#include "indexEntry.h"

namespace Tavro {

// An index of a table: one entry for each stored row, in some order, and the iterators that stand on them.
// Where entries stand and what finds one by its row is the derived classes' own. Owns its entries.
class IndexBase {
 public:
  IndexBase(std::string tableName, unsigned number, bool unique);
  IndexBase(const IndexBase&) = delete;
  IndexBase& operator=(const IndexBase&) = delete;
  // Iterators on rows of the index become default iterators.
  virtual ~IndexBase();

  // The index admits one row per key.
  bool isUnique() const { return unique_; }

  // True when `row` has the columns that the index compares.
  virtual bool takes(const BaseRow& row) const = 0;
  // Adds a row that the index takes; in a unique index its key must not be there. `arrival` is greater than
  // that of every row before. Throws std::bad_alloc and what the rules of a programmed index throw; the index
  // is then as it was.
  virtual IndexEntry* insert(const BaseRow& row, std::uint64_t arrival) = 0;
  // The first entry that matches `key`, or null. Throws TvNullRow, and TvOutOfRange for a key that the index
  // does not take.
  virtual IndexEntry* find(const BaseRow& key) = 0;
  // The same, for a row that is about to be inserted or deleted. A client's lookups may be worth preparing
  // for, which makes every change dearer.
  virtual IndexEntry* findForChange(const BaseRow& row) { return find(row); }
  // The first entry that is not less than `key`, or null. Throws as `find`, and std::runtime_error in an
  // index without an order.
  virtual IndexEntry* lowerBound(const BaseRow& key) = 0;

  // Removes the entry; iterators on it move to its successor.
  void erase(IndexEntry& entry) noexcept;
  // Another row of the same key takes the place of the entry's own in a unique index. Iterators move to the
  // successor, since the row that they stood on is gone.
  virtual void replaceRow(IndexEntry& entry, const BaseRow& row, std::uint64_t arrival) noexcept = 0;

  virtual IndexEntry* first() const = 0;
  // The entry behind, or null. Asked by who walks on, so the rows that come next are fetched ahead.
  virtual IndexEntry* next(const IndexEntry& entry) const = 0;
  // The row's number in order of arrival, from 1.
  virtual std::uint64_t arrivalOf(const IndexEntry& entry) const = 0;

  // From now on `inNextIndex` may be asked. Throws std::bad_alloc.
  virtual void prepareTies() {}
  // The same row in the index of the next number; behind the last comes index 0 again.
  virtual IndexEntry*& inNextIndex(IndexEntry& entry) = 0;

  TvRowIterator iteratorAt(IndexEntry* entry) { return {this, entry}; }

 protected:
  // Takes the entry out, on which no iterator stands any more.
  virtual void remove(IndexEntry& entry) noexcept = 0;
  void moveIterators(const IndexEntry& from, IndexEntry* to) noexcept;

  [[noreturn]] void throwNoOrder() const;

 private:
  friend class TvRowIterator;

  std::string tableName_;
  unsigned number_;
  bool unique_;
  TvRowIterator* iterators_ = nullptr;
};

}  // namespace Tavro
