#include "index.h"

#include <stdexcept>
#include <utility>

namespace Tavro {

IndexBase::IndexBase(std::string tableName, unsigned number, bool unique)
    : tableName_(std::move(tableName)), number_(number), unique_(unique) {}

IndexBase::~IndexBase() {
  while (iterators_ != nullptr) iterators_->detach();
  while (first_ != nullptr) {
    const IndexEntry::Owner entry(first_);
    first_ = entry->next;
  }
}

void IndexBase::unlink(IndexEntry& entry) noexcept {
  (entry.previous == nullptr ? first_ : entry.previous->next) = entry.next;
  (entry.next == nullptr ? last_ : entry.next->previous) = entry.previous;
}

void IndexBase::relinkLast(IndexEntry& entry) noexcept {
  unlink(entry);
  link(IndexEntry::Owner(&entry), nullptr);
}

void IndexBase::erase(IndexEntry& entry) noexcept {
  moveIterators(entry, entry.next);
  forget(entry);
  unlink(entry);
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

void IndexBase::throwNoOrder() const {
  throw std::runtime_error("table " + tableName_ + ": index " + std::to_string(number_) + " has no order");
}

}  // namespace Tavro
