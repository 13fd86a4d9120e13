#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "Tavro/baseRow.h"

namespace Tavro {

// One change of a table, as a reader is told of it.
struct Change {
  enum class Kind : unsigned char { inserted, deleted, ended };

  Kind kind;
  // Null for the end-of-data mark.
  BaseRow row;
};

// The changes that a reader has not been told of, in order. Places are reserved before a table is changed, so
// that nothing can fail behind that. The row of the first change is lent out while the reader is told of it,
// and the change counts until that has been done.
class Backlog {
 public:
  Backlog() = default;
  Backlog(const Backlog&) = delete;
  Backlog& operator=(const Backlog&) = delete;
  ~Backlog() { clear(); }

  // Makes room for so many changes, fewer than `fewPlaces`. Throws std::bad_alloc.
  void reserve(std::size_t changes) {
    if (behind_ - first_ + changes > places_) [[unlikely]]
      grow();
  }
  // Takes one of the places that were reserved.
  void add(Change::Kind kind, const BaseRow& row) noexcept {
    new (&at(behind_)) Change{kind, row};
    ++behind_;
    insertions_ += countOf(kind);
  }

  bool isEmpty() const { return first_ == behind_; }
  std::size_t insertions() const { return insertions_; }

  // Of a backlog that is not empty.
  Change lendFirst() noexcept {
    Change& first = at(first_);
    Change change{first.kind, std::move(first.row)};
    std::destroy_at(&first);
    isLent_ = true;
    return change;
  }
  // The reader has been told of `change`, which was lent out. False when there has been a `clear` since.
  bool dropLent(const Change& change) noexcept {
    if (!std::exchange(isLent_, false)) return false;
    insertions_ -= countOf(change.kind);
    ++first_;
    if (isEmpty() && places_ > fewPlaces) [[unlikely]]
      freePlaces();
    return true;
  }
  // The reader has refused it. No effect when there has been a `clear` since.
  void returnLent(Change&& change) noexcept {
    if (std::exchange(isLent_, false)) std::construct_at(&at(first_), std::move(change));
  }

  void clear() noexcept {
    for (std::size_t i = firstHere(); i != behind_; ++i) std::destroy_at(&at(i));
    first_ = behind_;
    freePlaces();
    insertions_ = 0;
    isLent_ = false;
  }

 private:
  // What is kept when all changes have been told.
  static constexpr std::size_t fewPlaces = 64;

  static std::size_t countOf(Change::Kind kind) { return kind == Change::Kind::inserted ? 1 : 0; }

  Change& at(std::size_t number) const { return changes_[number & (places_ - 1)]; }
  std::size_t firstHere() const { return first_ + (isLent_ ? 1 : 0); }

  [[gnu::noinline]] void grow() {
    const std::size_t places = places_ == 0 ? fewPlaces : 2 * places_;
    Change* const changes = std::allocator<Change>().allocate(places);
    for (std::size_t i = firstHere(); i != behind_; ++i) {
      std::construct_at(&changes[i & (places - 1)], std::move(at(i)));
      std::destroy_at(&at(i));
    }
    if (places_ != 0) std::allocator<Change>().deallocate(changes_, places_);
    changes_ = changes;
    places_ = places;
  }
  void freePlaces() noexcept {
    if (places_ != 0) std::allocator<Change>().deallocate(changes_, std::exchange(places_, 0));
  }

  // A power of two of places, or none. Changes are numbered from 0 on; each stands in the place of its
  // number.
  Change* changes_ = nullptr;
  std::size_t places_ = 0;
  std::size_t first_ = 0;
  std::size_t behind_ = 0;

  std::size_t insertions_ = 0;
  bool isLent_ = false;
};

}  // namespace Tavro
