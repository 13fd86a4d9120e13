#pragma once

#include <string>

#include "Tavro/tavroDb.h"
#include "indexEntry.h"

namespace Tavro {

// An index of a table: one entry for each stored row, in a list that stands in the order of the index, and
// the iterators that stand on them. What finds an entry by its row is the derived classes' own. Owns its
// entries.
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
  // Adds a row that the index takes; in a unique index its key must not be there. Throws std::bad_alloc and
  // what the rules of a programmed index throw; the index is then as it was.
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
  virtual void replaceRow(IndexEntry& entry, const BaseRow& row, std::uint64_t arrival) noexcept;

  IndexEntry* first() const { return first_; }
  TvRowIterator iteratorAt(IndexEntry* entry) { return {this, entry}; }

 protected:
  // Takes the entry out of what finds it.
  virtual void forget(IndexEntry& entry) noexcept = 0;

  // Puts the entry before `behind`, or last for null, and takes it over.
  IndexEntry* link(IndexEntry::Owner entry, IndexEntry* behind) noexcept {
    IndexEntry* const linked = entry.release();
    linked->next = behind;
    linked->previous = behind == nullptr ? last_ : behind->previous;
    (linked->previous == nullptr ? first_ : linked->previous->next) = linked;
    (behind == nullptr ? last_ : behind->previous) = linked;
    return linked;
  }
  // Moves an entry of the list to its end.
  void relinkLast(IndexEntry& entry) noexcept;

  [[noreturn]] void throwNoOrder() const;

 private:
  friend class TvRowIterator;

  void unlink(IndexEntry& entry) noexcept;

  void moveIterators(const IndexEntry& from, IndexEntry* to) noexcept;

  std::string tableName_;
  unsigned number_;
  bool unique_;
  IndexEntry* first_ = nullptr;
  IndexEntry* last_ = nullptr;
  TvRowIterator* iterators_ = nullptr;
};

}  // namespace Tavro
