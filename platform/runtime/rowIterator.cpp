#include "index.h"

namespace Tavro {

TvRowIterator::TvRowIterator(const TvRowIterator& other) { attach(other.index_, other.entry_); }

TvRowIterator& TvRowIterator::operator=(const TvRowIterator& other) {
  if (this == &other) return *this;
  detach();
  attach(other.index_, other.entry_);
  return *this;
}

BaseRow TvRowIterator::operator*() const { return entry_ == nullptr ? BaseRow() : entry_->row; }

TvRowIterator TvRowIterator::operator++(int) {
  TvRowIterator before(*this);
  ++*this;
  return before;
}

TvRowIterator& TvRowIterator::operator++() {
  if (entry_ != nullptr) step();
  return *this;
}

bool TvRowIterator::next(BaseRow& row) {
  const IndexEntry* const here = entry_;
  if (here == nullptr) [[unlikely]]
    return takeNothing(row);
  step();
  row = here->row;
  return true;
}

bool TvRowIterator::takeNothing(BaseRow& row) {
  row = BaseRow();
  return false;
}

inline void TvRowIterator::step() {
  IndexEntry* const following = index_->next(*entry_);
  if (following != nullptr) [[likely]]
    entry_ = following;
  else
    goToEnd();
}

void TvRowIterator::goToEnd() {
  IndexBase* const index = index_;
  detach();
  attach(index, nullptr);
}

void TvRowIterator::attach(IndexBase* index, IndexEntry* entry) {
  index_ = index;
  entry_ = entry;
  if (entry == nullptr) return;
  nextOnIndex_ = index->iterators_;
  if (nextOnIndex_ != nullptr) nextOnIndex_->previousOnIndex_ = this;
  index->iterators_ = this;
}

void TvRowIterator::detach() {
  if (entry_ != nullptr) {
    (previousOnIndex_ == nullptr ? index_->iterators_ : previousOnIndex_->nextOnIndex_) = nextOnIndex_;
    if (nextOnIndex_ != nullptr) nextOnIndex_->previousOnIndex_ = previousOnIndex_;
    nextOnIndex_ = previousOnIndex_ = nullptr;
  }
  index_ = nullptr;
  entry_ = nullptr;
}

}  // namespace Tavro
