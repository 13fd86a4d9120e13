#include "keyedEntries.h"

#include <algorithm>
#include <utility>

#include "hash.h"

namespace Tavro {
namespace {

constexpr std::size_t fewestBuckets = 2;
constexpr std::size_t cacheLine = 64;
// A number in every byte of a word.
constexpr std::uint64_t inEveryByte = 0x0101010101010101U;

std::uint64_t hashOfHead(std::uint64_t high, std::uint64_t low) { return mixHash(mixHash(0, high), low); }

}  // namespace

std::uint64_t KeyedEntries::hashOf(const EncodedKey& key) {
  const std::uint64_t hash = hashOfHead(key.high, key.low);
  return key.length > keyHeadLength ? mixHash(hash, hashBytes(key.tail, key.length - keyHeadLength)) : hash;
}

// Of bits that do not choose the bucket.
std::uint64_t KeyedEntries::markOf(std::uint64_t hash) { return std::max<std::uint64_t>(hash >> 56, 1); }

// A byte that is equal becomes 0: neither its highest bit is set, nor does 127 carry into that.
KeyedEntries::Places::Places(const Bucket& bucket, std::uint64_t mark) {
  constexpr std::uint64_t lowBits = 0x7F * inEveryByte;
  const std::uint64_t differing = bucket.marks ^ mark * inEveryByte;
  bits_ = ~(((differing & lowBits) + lowBits) | differing | lowBits) & markMask;
}

template <typename IsKey>
inline KeyedEntry* KeyedEntries::find(std::uint64_t hash, const IsKey& isKey) const {
  if (count_ == 0) return nullptr;
  const std::uint64_t mark = markOf(hash);
  const Bucket* bucket = &begin(hash);
  // Once around at most: all buckets may have been passed by many.
  for (std::size_t i = 0; i <= mask_; ++i, bucket = &next(*bucket)) {
    for (Places found(*bucket, mark); found.areLeft(); found.dropFirst()) {
      KeyedEntry* const entry = bucket->entries[found.first()];
      // A row that was put in as it was made stands in front of its entry.
      __builtin_prefetch(reinterpret_cast<const unsigned char*>(entry) - cacheLine);
      if (isKey(*entry)) [[likely]]
        return entry;
    }
    if (bucket->passed() == 0) break;
  }
  return nullptr;
}

KeyedEntry* KeyedEntries::find(const EncodedKey& key) const {
  return find(hashOf(key), [&key](const KeyedEntry& entry) { return entry.hasKey(key); });
}

KeyedEntry* KeyedEntries::findShort(std::uint64_t key) const {
  return find(hashOfHead(key, 0), [key](const KeyedEntry& entry) { return entry.high == key; });
}

void KeyedEntries::reserve() {
  if (count_ < limit_) return;
  const std::size_t former = limit_ == 0 ? 0 : mask_ + 1;
  const std::size_t count = former == 0 ? fewestBuckets : 2 * former;
  std::size_t room = (count + 1) * sizeof(Bucket);
  std::unique_ptr<unsigned char[]> memory(new unsigned char[room]);
  void* first = memory.get();
  std::align(alignof(Bucket), count * sizeof(Bucket), first, room);
  const Bucket* const old = std::exchange(buckets_, static_cast<Bucket*>(first));
  std::uninitialized_value_construct_n(buckets_, count);
  memory_.swap(memory);
  mask_ = count - 1;
  limit_ = count * places / 8 * 7;
  for (const Bucket* bucket = old; bucket != old + former; ++bucket)
    for (unsigned place = 0; place < places; ++place)
      if (bucket->entries[place] != nullptr) put(*bucket->entries[place]);
}

void KeyedEntries::insert(KeyedEntry& entry) noexcept {
  put(entry);
  ++count_;
}

void KeyedEntries::put(KeyedEntry& entry) noexcept {
  const std::uint64_t hash = hashOf(entry.key());
  for (Bucket* bucket = &begin(hash);; bucket = &next(*bucket)) {
    if (const Places free(*bucket, 0); free.areLeft()) {
      bucket->markIs(free.first(), markOf(hash));
      bucket->entries[free.first()] = &entry;
      return;
    }
    if (bucket->passed() != manyPassed) bucket->passedIs(bucket->passed() + 1);
  }
}

void KeyedEntries::erase(KeyedEntry& entry) noexcept {
  if (--count_ == 0) return clear();
  const std::uint64_t hash = hashOf(entry.key());
  for (Bucket* bucket = &begin(hash);; bucket = &next(*bucket)) {
    const auto found = std::find(bucket->entries.begin(), bucket->entries.end(), &entry);
    if (found != bucket->entries.end()) {
      *found = nullptr;
      bucket->markIs(static_cast<unsigned>(found - bucket->entries.begin()), 0);
      return;
    }
    if (bucket->passed() != manyPassed) bucket->passedIs(bucket->passed() - 1);
  }
}

void KeyedEntries::clear() noexcept {
  memory_.reset();
  buckets_ = nullptr;
  limit_ = count_ = 0;
}

}  // namespace Tavro
