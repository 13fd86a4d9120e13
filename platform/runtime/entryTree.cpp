#include "entryTree.h"

#include <algorithm>
#include <array>

namespace Tavro {
namespace {

constexpr unsigned nodeCapacity = 64;
// A node with fewer slots looks for a neighbour that it can be merged with.
constexpr unsigned fewSlots = nodeCapacity / 4;
// More levels than any memory holds.
constexpr unsigned maxDepth = 24;

}  // namespace

// A slot of a leaf is an entry. A slot of an inner node is a child, with the key and the address of the first
// entry below it: exact at all times, since a stale address could be followed.
struct EntryTree::Node {
  explicit Node(bool isLeaf) : leaf(isLeaf) {}

  void slotIs(unsigned i, const Node& from, unsigned j) {
    high[i] = from.high[j];
    low[i] = from.low[j];
    entry[i] = from.entry[j];
  }
  void slotIs(unsigned i, IndexEntry& e, const EncodedKey& key) {
    high[i] = key.high;
    low[i] = key.low;
    entry[i] = &e;
  }
  // Makes room for a slot at `i`.
  void openSlot(unsigned i);
  void removeSlot(unsigned i);
  // Moves the slots of `from`, from number `first` on, behind the slots here.
  void take(Node& from, unsigned first);
  Inner& inner();

  bool leaf;
  unsigned count = 0;
  std::array<std::uint64_t, nodeCapacity> high;
  std::array<std::uint64_t, nodeCapacity> low;
  std::array<IndexEntry*, nodeCapacity> entry;
};

struct EntryTree::Inner : Node {
  Inner() : Node(false) {}
  std::array<Node*, nodeCapacity> child;
};

EntryTree::Inner& EntryTree::Node::inner() { return static_cast<Inner&>(*this); }

void EntryTree::Node::openSlot(unsigned i) {
  const auto shift = [&](auto& slots) {
    std::copy_backward(slots.begin() + i, slots.begin() + count, slots.begin() + count + 1);
  };
  shift(high);
  shift(low);
  shift(entry);
  if (!leaf) shift(inner().child);
  ++count;
}

void EntryTree::Node::removeSlot(unsigned i) {
  const auto shift = [&](auto& slots) {
    std::copy(slots.begin() + i + 1, slots.begin() + count, slots.begin() + i);
  };
  shift(high);
  shift(low);
  shift(entry);
  if (!leaf) shift(inner().child);
  --count;
}

void EntryTree::Node::take(Node& from, unsigned first) {
  const auto move = [&](auto& to, const auto& slots) {
    std::copy(slots.begin() + first, slots.begin() + from.count, to.begin() + count);
  };
  move(high, from.high);
  move(low, from.low);
  move(entry, from.entry);
  if (!leaf) move(inner().child, from.inner().child);
  count += from.count - first;
  from.count = first;
}

// The heads of both keys are equal, so the entry's has a tail too if the other has one.
int EntryTree::compareTail(const IndexEntry& entry, const EncodedKey& key) {
  if (key.length <= keyHeadLength) return 0;
  return compareTails(static_cast<const KeyedEntry&>(entry).key(), key);
}

// The number of slots whose keys are not greater than `key`. Most keys are told apart by their first 8 bytes,
// so those are searched alone, without branches, since a wrong guess costs more than the whole search.
unsigned EntryTree::notGreater(const Node& node, const EncodedKey& key) {
  // A search in memory that is far away waits once instead of at every step.
  for (unsigned i = 0; i < nodeCapacity; i += 8) __builtin_prefetch(&node.high[i]);
  unsigned first = 0;
  for (unsigned length = node.count; length > 0;) {
    const unsigned half = (length + 1) / 2;
    first += half & (0U - static_cast<unsigned>(node.high[first + half - 1] < key.high));
    length -= half;
  }
  const auto isGreater = [&](unsigned i) {
    if (node.high[i] != key.high) return node.high[i] > key.high;
    if (node.low[i] != key.low) return node.low[i] > key.low;
    return compareTail(*node.entry[i], key) > 0;
  };
  if (first == node.count || isGreater(first)) return first;
  ++first;
  for (unsigned length = node.count - first; length > 0 && node.high[first] == key.high;) {
    const unsigned half = length / 2;
    const bool greater = isGreater(first + half);
    first = greater ? first : first + half + 1;
    length = greater ? half : length - half - 1;
  }
  return first;
}

// The child that has the key or would take it: a key before all others goes into the first.
unsigned EntryTree::childFor(const Node& node, const EncodedKey& key) {
  const unsigned upTo = notGreater(node, key);
  return upTo == 0 ? 0 : upTo - 1;
}

EntryTree::Node* EntryTree::newNode(bool leaf) { return leaf ? new Node(true) : new Inner; }

void EntryTree::freeNode(Node* node) noexcept {
  if (node->leaf)
    delete node;
  else
    delete &node->inner();
}

void EntryTree::freeTree(Node* node) noexcept {
  if (!node->leaf)
    for (unsigned i = 0; i < node->count; ++i) freeTree(node->inner().child[i]);
  freeNode(node);
}

void EntryTree::clear() noexcept {
  if (root_ != nullptr) freeTree(root_);
  root_ = nullptr;
}

IndexEntry* EntryTree::lowerBound(const EncodedKey& key) const {
  if (root_ == nullptr) return nullptr;
  IndexEntry* behind = nullptr;
  Node* node = root_;
  while (!node->leaf) {
    const unsigned i = childFor(*node, key);
    if (i + 1 < node->count) behind = node->entry[i + 1];
    node = node->inner().child[i];
  }
  const unsigned upTo = notGreater(*node, key);
  if (upTo > 0 && node->high[upTo - 1] == key.high && node->low[upTo - 1] == key.low &&
      compareTail(*node->entry[upTo - 1], key) == 0)
    return node->entry[upTo - 1];
  return upTo < node->count ? node->entry[upTo] : behind;
}

// Full nodes are split on the way down, so the leaf has room and nothing can fail once the entry goes in.
IndexEntry* EntryTree::insert(IndexEntry& entry, const EncodedKey& key) {
  if (root_ == nullptr) root_ = newNode(true);
  if (root_->count == nodeCapacity) {
    Inner* const above = new Inner;
    above->openSlot(0);
    above->slotIs(0, *root_, 0);
    above->child[0] = root_;
    root_ = above;
  }
  IndexEntry* behind = nullptr;
  Node* node = root_;
  while (!node->leaf) {
    Inner& inner = node->inner();
    unsigned i = childFor(inner, key);
    if (inner.child[i]->count == nodeCapacity) {
      split(inner, i, key);
      i = childFor(inner, key);
    }
    if (i + 1 < inner.count) behind = inner.entry[i + 1];
    node = inner.child[i];
  }
  const unsigned position = notGreater(*node, key);
  if (position < node->count) behind = node->entry[position];
  // The caller links the entry between its neighbours.
  __builtin_prefetch(behind);
  if (position > 0) __builtin_prefetch(node->entry[position - 1]);
  node->openSlot(position);
  node->slotIs(position, entry, key);
  // Only a key before all others can come first in its leaf.
  if (position == 0)
    for (Node* first = root_; !first->leaf; first = first->inner().child[0]) first->slotIs(0, entry, key);
  return behind;
}

// Keys that arrive in order leave full nodes behind them.
void EntryTree::split(Inner& parent, unsigned index, const EncodedKey& key) {
  Node& left = *parent.child[index];
  Node* const right = newNode(left.leaf);
  const bool appending = notGreater(left, key) == left.count;
  right->take(left, appending ? nodeCapacity - 1 : nodeCapacity / 2);
  parent.openSlot(index + 1);
  parent.slotIs(index + 1, *right, 0);
  parent.child[index + 1] = right;
}

void EntryTree::erase(const EncodedKey& key) noexcept {
  struct Step {
    Inner* node;
    unsigned index;
  };
  std::array<Step, maxDepth> path;
  unsigned depth = 0;
  Node* node = root_;
  while (!node->leaf) {
    const unsigned i = childFor(*node, key);
    path[depth++] = {&node->inner(), i};
    node = node->inner().child[i];
  }
  node->removeSlot(notGreater(*node, key) - 1);
  while (depth > 0) {
    --depth;
    rebalance(*path[depth].node, path[depth].index);
  }
  while (!root_->leaf && root_->count == 1) {
    Node* const above = root_;
    root_ = root_->inner().child[0];
    freeNode(above);
  }
  if (root_->count == 0) clear();
}

// After child number `index` has lost a slot: merges it with a neighbour when both are small, drops it when
// it is empty, and brings its slot in the parent up to date.
void EntryTree::rebalance(Inner& parent, unsigned index) noexcept {
  Node* const node = parent.child[index];
  if (node->count < fewSlots) {
    const unsigned left = index == 0 ? 0 : index - 1;
    if (left + 1 < parent.count) {
      Node* const right = parent.child[left + 1];
      const unsigned together = parent.child[left]->count + right->count;
      if (node->count == 0 || together <= nodeCapacity - fewSlots) {
        parent.child[left]->take(*right, 0);
        freeNode(right);
        parent.removeSlot(left + 1);
        index = left;
      }
    } else if (node->count == 0) {
      freeNode(node);
      parent.removeSlot(index);
      return;
    }
  }
  parent.slotIs(index, *parent.child[index], 0);
}

}  // namespace Tavro
