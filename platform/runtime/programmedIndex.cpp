#include "programmedIndex.h"

#include <utility>

#include "entrySequence.h"
#include "hashedEntries.h"
#include "linkedIndex.h"
#include "rowShape.h"

namespace Tavro {
namespace {

class ProgrammedIndex : public LinkedIndex {
 public:
  ProgrammedIndex(unsigned number, const std::vector<tvMetadata::tvColumn>& columns, len_t fixedLength,
                  TvPtr<RowOpsBase> rules)
      : LinkedIndex(columns.front().tableName(), number, rules->unique()),
        rules_(std::move(rules)),
        shape_(columns, fixedLength) {}

  bool takes(const BaseRow& row) const override { return shape_.fits(row); }

 protected:
  void requireProbe(const BaseRow& row) const {
    if (row.isNull()) throw TvNullRow();
    shape_.require(row);
  }
  RowOpsBase& rules() const { return *rules_; }

 private:
  TvPtr<RowOpsBase> rules_;
  RowShape shape_;
};

// Rows in the order of `less`, those that it does not tell apart in order of arrival. A row is compared on
// its way in and when it is looked for, but not on its way out, which must not fail.
class LessIndex final : public ProgrammedIndex {
 public:
  using ProgrammedIndex::ProgrammedIndex;

  IndexEntry* insert(const BaseRow& row, std::uint64_t arrival) override {
    LinkedEntry* const behind = firstBehind(row);
    LinkedEntry::Owner entry = LinkedEntry::make(row, arrival);
    order_.insert(*entry, behind);
    return link(std::move(entry), behind);
  }
  IndexEntry* find(const BaseRow& row) override {
    IndexEntry* const found = lowerBound(row);
    return found != nullptr && !rules().less(row, found->row) ? found : nullptr;
  }
  IndexEntry* lowerBound(const BaseRow& row) override {
    requireProbe(row);
    return order_.firstNot([&](const IndexEntry& entry) { return rules().less(entry.row, row); });
  }

 private:
  void forget(LinkedEntry& entry) noexcept override { order_.erase(entry); }

  // Rows often arrive in their order, so the last is asked first.
  LinkedEntry* firstBehind(const BaseRow& row) const {
    const auto isNotBehind = [&](const IndexEntry& entry) { return !rules().less(row, entry.row); };
    if (order_.isEmpty() || isNotBehind(order_.last())) return nullptr;
    return order_.firstNot(isNotBehind);
  }

  EntrySequence order_;
};

// Rows in order of arrival, found by `hash` and `equals`.
class HashIndex final : public ProgrammedIndex {
 public:
  using ProgrammedIndex::ProgrammedIndex;

  IndexEntry* insert(const BaseRow& row, std::uint64_t arrival) override {
    LinkedEntry::Owner entry = KeyedEntry::make(row, arrival, hashKey(rules().hash(row), arrival));
    byHash_.insert(static_cast<KeyedEntry&>(*entry));
    return link(std::move(entry), nullptr);
  }
  IndexEntry* find(const BaseRow& row) override {
    requireProbe(row);
    return byHash_.find(rules().hash(row),
                        [&](const BaseRow& candidate) { return rules().equals(candidate, row); });
  }
  IndexEntry* lowerBound(const BaseRow&) override { throwNoOrder(); }
  void replaceRow(IndexEntry& entry, const BaseRow& row, std::uint64_t arrival) noexcept override {
    LinkedIndex::replaceRow(entry, row, arrival);
    relinkLast(linked(entry));
  }

 private:
  void forget(LinkedEntry& entry) noexcept override { byHash_.erase(static_cast<KeyedEntry&>(entry)); }

  // The key keeps the number of the row that came first, while `arrival` is that of a row in its place.
  HashedEntries<KeyedEntry> byHash_;
};

}  // namespace

std::unique_ptr<IndexBase> makeProgrammedIndex(unsigned number,
                                               const std::vector<tvMetadata::tvColumn>& columns,
                                               len_t fixedLength, TvPtr<RowOpsBase> rules) {
  if (rules->ordered()) return std::make_unique<LessIndex>(number, columns, fixedLength, std::move(rules));
  return std::make_unique<HashIndex>(number, columns, fixedLength, std::move(rules));
}

}  // namespace Tavro
