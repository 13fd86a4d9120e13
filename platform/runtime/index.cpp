#include "index.h"

#include <stdexcept>
#include <utility>

namespace Tavro {

IndexBase::IndexBase(std::string tableName, unsigned number, bool unique)
    : tableName_(std::move(tableName)), number_(number), unique_(unique) {}

IndexBase::~IndexBase() {
  while (iterators_ != nullptr) iterators_->detach();
}

void IndexBase::erase(IndexEntry& entry) noexcept {
  if (iterators_ != nullptr) moveIterators(entry, next(entry));
  remove(entry);
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
