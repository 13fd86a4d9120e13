#include "keyedEntries.h"

#include <utility>

#include "hash.h"

namespace Tavro {
namespace {

constexpr std::size_t fewestPlaces = 8;

}  // namespace

KeyedEntries::Tag KeyedEntries::tagOf(const EncodedKey& key) {
  std::uint64_t hash = mixHash(mixHash(0, key.high), key.low);
  if (key.length > keyHeadLength) hash = mixHash(hash, hashBytes(key.tail, key.length - keyHeadLength));
  const auto tag = static_cast<Tag>(hash);
  return tag == 0 ? 1 : tag;
}

KeyedEntry* KeyedEntries::find(const EncodedKey& key) const {
  if (count_ == 0) return nullptr;
  const Tag tag = tagOf(key);
  __builtin_prefetch(&entries_[begin(tag)]);
  for (std::size_t i = begin(tag); tags_[i] != 0; i = next(i))
    if (tags_[i] == tag && entries_[i]->hasKey(key)) return entries_[i];
  return nullptr;
}

void KeyedEntries::reserve() {
  if (count_ < limit_) return;
  const std::size_t former = limit_ == 0 ? 0 : mask_ + 1;
  const std::size_t places = former == 0 ? fewestPlaces : 2 * former;
  auto tags = std::make_unique<Tag[]>(places);
  auto entries = std::make_unique<KeyedEntry*[]>(places);
  tags.swap(tags_);
  entries.swap(entries_);
  mask_ = places - 1;
  limit_ = places / 8 * 7;
  for (std::size_t i = 0; i < former; ++i)
    if (tags[i] != 0) put(tags[i], entries[i]);
}

void KeyedEntries::insert(KeyedEntry& entry) noexcept {
  put(tagOf(entry.key()), &entry);
  ++count_;
}

void KeyedEntries::put(Tag tag, KeyedEntry* entry) noexcept {
  std::size_t i = begin(tag);
  while (tags_[i] != 0) i = next(i);
  tags_[i] = tag;
  entries_[i] = entry;
}

// What stands behind the gap moves into it, unless it would then stand ahead of where its search begins.
void KeyedEntries::erase(KeyedEntry& entry) noexcept {
  if (--count_ == 0) return clear();
  std::size_t gap = begin(tagOf(entry.key()));
  while (entries_[gap] != &entry) gap = next(gap);
  for (std::size_t i = next(gap); tags_[i] != 0; i = next(i)) {
    if (((i - begin(tags_[i])) & mask_) < ((i - gap) & mask_)) continue;
    tags_[gap] = tags_[i];
    entries_[gap] = entries_[i];
    gap = i;
  }
  tags_[gap] = 0;
}

void KeyedEntries::clear() noexcept {
  tags_.reset();
  entries_.reset();
  limit_ = count_ = 0;
}

}  // namespace Tavro
