#include "arrivalIndex.h"

#include <algorithm>
#include <array>
#include <bit>
#include <new>
#include <utility>

#include "hash.h"

namespace Tavro {
namespace {

constexpr unsigned wordBits = 64;

// A walk asks for rows so many entries ahead.
constexpr unsigned rowsAhead = 8;

}  // namespace

struct ArrivalIndex::Chunk {
  // Of some 4 KB on a machine with pointers of 8 bytes.
  static constexpr unsigned capacity = 120;

  explicit Chunk(std::uint64_t arrival) : firstArrival(arrival), end(at(0)) {}

  static Chunk& of(const IndexEntry& entry) { return *static_cast<const Entry&>(entry).chunk; }
  Entry* at(unsigned place) { return reinterpret_cast<Entry*>(places_.data()) + place; }
  unsigned placeOf(const IndexEntry& entry) {
    return static_cast<unsigned>(static_cast<const Entry*>(&entry) - at(0));
  }
  unsigned size() { return placeOf(*end); }
  bool isEmpty() { return gaps == size(); }
  void addGap(unsigned place) {
    gaps_[place / wordBits] |= std::uint64_t{1} << place % wordBits;
    ++gaps;
  }
  // The first entry from `place` on, or null.
  Entry* from(unsigned place) {
    for (const unsigned count = size(); place < count; place = (place / wordBits + 1) * wordBits) {
      const std::uint64_t taken = ~gaps_[place / wordBits] >> place % wordBits;
      if (taken == 0) continue;
      place += static_cast<unsigned>(std::countr_zero(taken));
      return place < count ? at(place) : nullptr;
    }
    return nullptr;
  }

  Chunk* previous = nullptr;
  Chunk* next = nullptr;
  // The number of arrival of the first place.
  std::uint64_t firstArrival;
  // Behind the last place that has been taken.
  Entry* end;
  // Places before that where no entry stands any more.
  unsigned gaps = 0;
  // By place, where they are needed: the same rows in the next index, and the hashes of the rows.
  std::unique_ptr<IndexEntry*[]> ties;
  std::unique_ptr<std::uint64_t[]> hashes;

 private:
  std::array<std::uint64_t, capacity / wordBits + 1> gaps_{};
  alignas(Entry) std::array<unsigned char, capacity * sizeof(Entry)> places_;
};

EncodedKey ArrivalIndex::Entry::key() const {
  Chunk& chunk = Chunk::of(*this);
  const unsigned place = chunk.placeOf(*this);
  return hashKey(chunk.hashes[place], chunk.firstArrival + place);
}

ArrivalIndex::ArrivalIndex(unsigned number, const std::vector<tvMetadata::tvColumn>& columns,
                           len_t fixedLength)
    : IndexBase(columns.front().tableName(), number, false),
      shape_(columns, fixedLength),
      encoder_(columns) {}

ArrivalIndex::~ArrivalIndex() {
  for (Chunk* chunk = first_; chunk != nullptr;) {
    for (Entry* entry = chunk->from(0); entry != nullptr; entry = chunk->from(chunk->placeOf(*entry) + 1))
      entry->~Entry();
    const std::unique_ptr<Chunk> gone(std::exchange(chunk, chunk->next));
  }
}

std::unique_ptr<ArrivalIndex::Chunk> ArrivalIndex::newChunk(std::uint64_t firstArrival) const {
  auto chunk = std::make_unique<Chunk>(firstArrival);
  if (hasTies_) chunk->ties = std::make_unique<IndexEntry*[]>(Chunk::capacity);
  if (hasLookup_) chunk->hashes = std::make_unique<std::uint64_t[]>(Chunk::capacity);
  return chunk;
}

void ArrivalIndex::release(Chunk& chunk) noexcept {
  (chunk.previous == nullptr ? first_ : chunk.previous->next) = chunk.next;
  (chunk.next == nullptr ? last_ : chunk.next->previous) = chunk.previous;
  delete &chunk;
}

IndexEntry& ArrivalIndex::take(BaseRow&& row, std::uint64_t arrival) {
  if (hasLookup_ || hasToGoOnFor(arrival)) [[unlikely]]
    return takeWithCare(std::move(row), arrival);
  Entry& entry = *new (last_->end) Entry(std::move(row), *last_);
  takePlace(arrival);
  return entry;
}

IndexEntry& ArrivalIndex::takeWithCare(BaseRow&& row, std::uint64_t arrival) {
  if (hasToGoOnFor(arrival)) goOnAt(arrival);
  Entry& entry = *new (last_->end) Entry(std::move(row), *last_);
  if (hasLookup_) {
    try {
      addToLookup(entry);
    } catch (...) {
      row = std::move(entry.row);
      entry.~Entry();
      throw;
    }
  }
  takePlace(arrival);
  return entry;
}

inline bool ArrivalIndex::hasToGoOnFor(std::uint64_t arrival) const {
  return arrival != nextArrival_ || last_->end == last_->at(Chunk::capacity);
}

inline void ArrivalIndex::takePlace(std::uint64_t arrival) {
  ++last_->end;
  nextArrival_ = arrival + 1;
}

// Numbers of arrival that nothing stands for are gaps.
void ArrivalIndex::goOnAt(std::uint64_t arrival) {
  if (last_ == nullptr || arrival - last_->firstArrival >= Chunk::capacity) {
    Chunk* const chunk = newChunk(arrival).release();
    chunk->previous = last_;
    (last_ == nullptr ? first_ : last_->next) = chunk;
    Chunk* const former = std::exchange(last_, chunk);
    if (former != nullptr && former->isEmpty()) release(*former);
    nextArrival_ = arrival;
  } else {
    for (; nextArrival_ < arrival; ++nextArrival_) last_->addGap(last_->placeOf(*last_->end++));
  }
}

void ArrivalIndex::remove(IndexEntry& removed) noexcept {
  auto& entry = static_cast<Entry&>(removed);
  if (hasLookup_) byHash_.erase(entry);
  Chunk& chunk = Chunk::of(entry);
  chunk.addGap(chunk.placeOf(entry));
  entry.~Entry();
  // The last chunk goes on to be filled.
  if (chunk.isEmpty() && &chunk != last_) release(chunk);
}

void ArrivalIndex::replaceRow(IndexEntry&, const BaseRow&, std::uint64_t) noexcept {}

IndexEntry* ArrivalIndex::first() const {
  for (Chunk* chunk = first_; chunk != nullptr; chunk = chunk->next)
    if (Entry* const entry = chunk->from(0); entry != nullptr) return entry;
  return nullptr;
}

IndexEntry* ArrivalIndex::next(const IndexEntry& entry) const {
  Chunk* chunk = &Chunk::of(entry);
  const Entry* const following = static_cast<const Entry*>(&entry) + 1;
  if (following + rowsAhead < chunk->end && chunk->gaps == 0) [[likely]] {
    following[rowsAhead].row.prefetch();
    return const_cast<Entry*>(following);
  }
  Entry* found = chunk->from(chunk->placeOf(entry) + 1);
  while (found == nullptr && chunk->next != nullptr) {
    chunk = chunk->next;
    found = chunk->from(0);
  }
  return found;
}

std::uint64_t ArrivalIndex::arrivalOf(const IndexEntry& entry) const {
  Chunk& chunk = Chunk::of(entry);
  return chunk.firstArrival + chunk.placeOf(entry);
}

void ArrivalIndex::prepareTies() {
  for (Chunk* chunk = first_; chunk != nullptr; chunk = chunk->next)
    if (chunk->ties == nullptr) chunk->ties = std::make_unique<IndexEntry*[]>(Chunk::capacity);
  hasTies_ = true;
}

IndexEntry*& ArrivalIndex::inNextIndex(IndexEntry& entry) {
  Chunk& chunk = Chunk::of(entry);
  return chunk.ties[chunk.placeOf(entry)];
}

IndexEntry* ArrivalIndex::find(const BaseRow& row) {
  if (row.isNull()) throw TvNullRow();
  shape_.require(row);
  if (!hasLookup_) buildLookup();
  KeyBuffer wanted;
  encoder_.append(row, wanted);
  return byHash_.find(hashBytes(wanted.bytes(), wanted.size()), [&](const BaseRow& candidate) {
    KeyBuffer found;
    encoder_.append(candidate, found);
    return std::equal(wanted.bytes(), wanted.bytes() + wanted.size(), found.bytes(),
                      found.bytes() + found.size());
  });
}

IndexEntry* ArrivalIndex::lowerBound(const BaseRow&) { throwNoOrder(); }

void ArrivalIndex::buildLookup() {
  try {
    for (Chunk* chunk = first_; chunk != nullptr; chunk = chunk->next)
      if (chunk->hashes == nullptr) chunk->hashes = std::make_unique<std::uint64_t[]>(Chunk::capacity);
    for (IndexEntry* entry = first(); entry != nullptr; entry = next(*entry))
      addToLookup(static_cast<Entry&>(*entry));
  } catch (...) {
    byHash_.clear();
    throw;
  }
  hasLookup_ = true;
}

void ArrivalIndex::addToLookup(Entry& entry) {
  KeyBuffer key;
  encoder_.append(entry.row, key);
  Chunk& chunk = Chunk::of(entry);
  chunk.hashes[chunk.placeOf(entry)] = hashBytes(key.bytes(), key.size());
  byHash_.insert(entry);
}

}  // namespace Tavro
