#pragma once

#include "index.h"

namespace Tavro {

// An index whose entries are LinkedEntries, in a list that stands in the order of the index.
class LinkedIndex : public IndexBase {
 public:
  using IndexBase::IndexBase;
  ~LinkedIndex() override;

  void replaceRow(IndexEntry& entry, const BaseRow& row, std::uint64_t arrival) noexcept override;

  IndexEntry* first() const override { return first_; }
  IndexEntry* next(const IndexEntry& entry) const override {
    LinkedEntry* const following = linked(entry).next;
    // Only the row after next can be fetched, since entries are found one by one.
    if (following != nullptr && following->next != nullptr) following->next->row.prefetch();
    return following;
  }
  std::uint64_t arrivalOf(const IndexEntry& entry) const override { return linked(entry).arrival; }
  IndexEntry*& inNextIndex(IndexEntry& entry) override { return linked(entry).inNextIndex; }

 protected:
  static LinkedEntry& linked(IndexEntry& entry) { return static_cast<LinkedEntry&>(entry); }
  static const LinkedEntry& linked(const IndexEntry& entry) { return static_cast<const LinkedEntry&>(entry); }

  // Takes the entry out of what finds it.
  virtual void forget(LinkedEntry& entry) noexcept = 0;

  // Puts the entry before `behind`, or last for null, and takes it over.
  IndexEntry* link(LinkedEntry::Owner entry, IndexEntry* behind) noexcept {
    return link(*entry.release(), static_cast<LinkedEntry*>(behind));
  }
  // Moves an entry of the list to its end.
  void relinkLast(LinkedEntry& entry) noexcept {
    unlink(entry);
    link(entry, nullptr);
  }

 private:
  void remove(IndexEntry& entry) noexcept override;
  IndexEntry* link(LinkedEntry& entry, LinkedEntry* behind) noexcept {
    entry.next = behind;
    entry.previous = behind == nullptr ? last_ : behind->previous;
    (entry.previous == nullptr ? first_ : entry.previous->next) = &entry;
    (behind == nullptr ? last_ : behind->previous) = &entry;
    return &entry;
  }
  void unlink(LinkedEntry& entry) noexcept {
    (entry.previous == nullptr ? first_ : entry.previous->next) = entry.next;
    (entry.next == nullptr ? last_ : entry.next->previous) = entry.previous;
  }

  LinkedEntry* first_ = nullptr;
  LinkedEntry* last_ = nullptr;
};

}  // namespace Tavro
