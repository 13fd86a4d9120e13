#pragma once

#include <deque>

#include "Tavro/baseRow.h"

namespace Tavro {

// One change of a table, as a reader is told of it.
struct Change {
  enum class Kind : unsigned char { inserted, deleted, ended };

  Change(Kind what, const BaseRow& of) : kind(what), row(of) {}

  Kind kind;
  // Null for the end-of-data mark.
  BaseRow row;
};

// The changes that a reader has not been told of, in order. Changes are staged first, and become part of it
// when they are settled: what fails half way is withdrawn.
class Backlog {
 public:
  void stage(Change::Kind kind, const BaseRow& row) {
    changes_.emplace_back(kind, row);
    ++staged_;
    insertions_ += kind == Change::Kind::inserted ? 1 : 0;
  }
  void settle() noexcept { staged_ = 0; }
  void withdraw() noexcept {
    for (; staged_ > 0; --staged_) {
      insertions_ -= changes_.back().kind == Change::Kind::inserted ? 1 : 0;
      changes_.pop_back();
    }
  }

  bool isEmpty() const { return changes_.empty(); }
  const Change& front() const { return changes_.front(); }
  void popFront() noexcept {
    insertions_ -= front().kind == Change::Kind::inserted ? 1 : 0;
    changes_.pop_front();
  }
  void clear() noexcept {
    changes_.clear();
    staged_ = insertions_ = 0;
  }

  std::size_t insertions() const { return insertions_; }

 private:
  std::deque<Change> changes_;
  std::size_t staged_ = 0;
  std::size_t insertions_ = 0;
};

}  // namespace Tavro
