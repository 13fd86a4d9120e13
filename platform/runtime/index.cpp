#include "index.h"

#include <utility>

namespace Tavro {

IndexBase::IndexBase(std::string tableName, unsigned number)
    : tableName_(std::move(tableName)), number_(number) {}

IndexBase::~IndexBase() {
  while (iterators_ != nullptr) iterators_->detach();
  while (first_ != nullptr) {
    const IndexEntry::Owner entry(first_);
    first_ = entry->next;
  }
}

IndexEntry* IndexBase::link(IndexEntry::Owner owner, IndexEntry* behind) noexcept {
  IndexEntry* const entry = owner.release();
  entry->next = behind;
  entry->previous = behind == nullptr ? last_ : behind->previous;
  (entry->previous == nullptr ? first_ : entry->previous->next) = entry;
  (behind == nullptr ? last_ : behind->previous) = entry;
  return entry;
}

void IndexBase::erase(IndexEntry& entry) noexcept {
  moveIterators(entry, entry.next);
  forget(entry);
  (entry.previous == nullptr ? first_ : entry.previous->next) = entry.next;
  (entry.next == nullptr ? last_ : entry.next->previous) = entry.previous;
  IndexEntry::Deleter()(&entry);
}

void IndexBase::replaceRow(IndexEntry& entry, const BaseRow& row, std::uint64_t arrival) noexcept {
  moveIterators(entry, entry.next);
  entry.row = row;
  entry.arrival = arrival;
}

void IndexBase::moveIterators(const IndexEntry& from, IndexEntry* to) noexcept {
  for (TvRowIterator* iterator = iterators_; iterator != nullptr;) {
    TvRowIterator* const following = iterator->nextOnIndex_;
    if (iterator->entry_ == &from) {
      iterator->detach();
      iterator->attach(this, to);
    }
    iterator = following;
  }
}

std::string IndexBase::title() const { return "table " + tableName_ + ": index " + std::to_string(number_); }

}  // namespace Tavro
