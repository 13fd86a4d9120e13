#include "linkedIndex.h"

namespace Tavro {

LinkedIndex::~LinkedIndex() {
  while (first_ != nullptr) {
    const LinkedEntry::Owner entry(first_);
    first_ = entry->next;
  }
}

void LinkedIndex::replaceRow(IndexEntry& entry, const BaseRow& row, std::uint64_t arrival) noexcept {
  moveIterators(entry, linked(entry).next);
  entry.row = row;
  linked(entry).arrival = arrival;
}

void LinkedIndex::remove(IndexEntry& entry) noexcept {
  forget(linked(entry));
  unlink(linked(entry));
  LinkedEntry::Deleter()(&linked(entry));
}

}  // namespace Tavro
