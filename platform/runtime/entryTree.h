#pragma once

#include "indexEntry.h"

namespace Tavro {

// Entries in the order of their keys, which must all differ: a B+ tree whose nodes hold the heads of the keys
// side by side. It points at entries and does not own them; those of keys of more than 16 bytes must be
// KeyedEntries.
class EntryTree {
 public:
  EntryTree() = default;
  EntryTree(const EntryTree&) = delete;
  EntryTree& operator=(const EntryTree&) = delete;
  ~EntryTree() { clear(); }

  // The first entry whose key is not less, or null.
  IndexEntry* lowerBound(const EncodedKey& key) const;
  // Adds the entry of that key and returns the one behind it, or null. Throws std::bad_alloc; the tree then
  // holds what it held.
  IndexEntry* insert(IndexEntry& entry, const EncodedKey& key);
  // The entry of that key must be in the tree.
  void erase(const EncodedKey& key) noexcept;
  void clear() noexcept;

 private:
  struct Node;
  struct Inner;

  static int compareTail(const IndexEntry& entry, const EncodedKey& key);
  static unsigned notGreater(const Node& node, const EncodedKey& key);
  static unsigned childFor(const Node& node, const EncodedKey& key);
  static Node* newNode(bool leaf);
  static void freeNode(Node* node) noexcept;
  static void freeTree(Node* node) noexcept;
  static void split(Inner& parent, unsigned index, const EncodedKey& key);
  static void rebalance(Inner& parent, unsigned index) noexcept;

  Node* root_ = nullptr;
};

}  // namespace Tavro
