#pragma once

#include <memory>
#include <vector>

#include "Tavro/tvMetadata.h"
#include "hashedEntries.h"
#include "index.h"
#include "keyEncoder.h"
#include "rowShape.h"

namespace Tavro {

// Rows in order of arrival, which admits equal ones. A lookup matches the first row that is equal in all
// columns; what it needs is built when the first one asks for it.
//
// Most tables are of this kind, so an entry is little more than a row's handle: entries stand side by side in
// chunks, each in the place that its number of arrival says. What was erased leaves a gap; a chunk goes with
// its last entry.
class ArrivalIndex final : public IndexBase {
 public:
  ArrivalIndex(unsigned number, const std::vector<tvMetadata::tvColumn>& columns, len_t fixedLength);
  ~ArrivalIndex() override;

  bool takes(const BaseRow& row) const override { return shape_.fits(row); }
  IndexEntry* insert(const BaseRow& row, std::uint64_t arrival) override {
    return &take(BaseRow(row), arrival);
  }
  // The same for a handle that is not needed any more. It is taken over only if nothing fails.
  IndexEntry& take(BaseRow&& row, std::uint64_t arrival);
  IndexEntry* find(const BaseRow& key) override;
  IndexEntry* lowerBound(const BaseRow& key) override;
  // Never called, since no key is unique.
  void replaceRow(IndexEntry& entry, const BaseRow& row, std::uint64_t arrival) noexcept override;

  IndexEntry* first() const override;
  IndexEntry* next(const IndexEntry& entry) const override;
  std::uint64_t arrivalOf(const IndexEntry& entry) const override;
  void prepareTies() override;
  IndexEntry*& inNextIndex(IndexEntry& entry) override;

 private:
  struct Chunk;
  struct Entry : IndexEntry {
    Entry(BaseRow&& storedRow, Chunk& itsChunk) : IndexEntry(std::move(storedRow)), chunk(&itsChunk) {}
    // Found by the hash of its row, once there has been a lookup.
    EncodedKey key() const;

    Chunk* chunk;
  };

  void remove(IndexEntry& entry) noexcept override;
  // With a lookup to keep, or where the next place is not that of the number of arrival.
  IndexEntry& takeWithCare(BaseRow&& row, std::uint64_t arrival);
  bool hasToGoOnFor(std::uint64_t arrival) const;
  void takePlace(std::uint64_t arrival);
  void goOnAt(std::uint64_t arrival);
  std::unique_ptr<Chunk> newChunk(std::uint64_t firstArrival) const;
  void release(Chunk& chunk) noexcept;

  void buildLookup();
  void addToLookup(Entry& entry);

  RowShape shape_;
  KeyEncoder encoder_;
  Chunk* first_ = nullptr;
  Chunk* last_ = nullptr;
  // Of the place behind the last; 0, which no row has, before the first chunk.
  std::uint64_t nextArrival_ = 0;
  bool hasTies_ = false;
  // By all columns. Empty until the first lookup.
  HashedEntries<Entry> byHash_;
  bool hasLookup_ = false;
};

}  // namespace Tavro
