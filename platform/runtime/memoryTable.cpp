#include "memoryTable.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <stdexcept>
#include <utility>

#include "arrivalIndex.h"
#include "orderedIndex.h"
#include "programmedIndex.h"

namespace Tavro {
namespace {

len_t endOf(const tvMetadata::tvColumn& column) {
  return static_cast<len_t>(column.offset() + column.length());
}

std::vector<tvMetadata::tvColumn> keyColumns(const std::vector<tvMetadata::tvColumn>& columns) {
  std::vector<tvMetadata::tvColumn> keys;
  std::copy_if(columns.begin(), columns.end(), std::back_inserter(keys),
               [](const tvMetadata::tvColumn& column) { return column.isKey(); });
  return keys;
}

}  // namespace

std::vector<tvMetadata::tvColumn> layOut(const std::string& tableName,
                                         const std::vector<ColumnDefinition>& definitions) {
  if (definitions.empty()) throw std::invalid_argument("table " + tableName + " has no columns");
  std::vector<tvMetadata::tvColumn> columns;
  std::set<std::string> names;
  unsigned offset = tv_contentOffset;
  for (const ColumnDefinition& definition : definitions) {
    if (!names.insert(definition.name).second)
      throw std::invalid_argument("table " + tableName + " has two columns '" + definition.name + "'");
    const auto type = static_cast<unsigned short>(definition.type);
    const unsigned short width = definition.isArray ? variableSlotWidth : getTavroTypeLength(type);
    if (offset + width > tv_maxRowLength)
      throw std::invalid_argument("table " + tableName + ": column '" + definition.name +
                                  "' lies beyond the longest row of " + std::to_string(tv_maxRowLength) +
                                  " bytes");
    columns.emplace_back(tableName, definition.name, type, 0U, width, len_t{0}, definition.isArray, len_t{0},
                         static_cast<len_t>(offset), definition.isKey, false);
    offset += width;
  }
  return columns;
}

MemoryTable::MemoryTable(std::string name, unsigned short rowType, std::vector<tvMetadata::tvColumn> columns)
    : name_(std::move(name)),
      rowType_(rowType),
      columns_(std::move(columns)),
      fixedLength_(endOf(columns_.back())),
      shape_(columns_, fixedLength_) {
  const std::vector<tvMetadata::tvColumn> keys = keyColumns(columns_);
  hasKey_ = !keys.empty();
  if (hasKey_)
    indexes_.push_back(std::make_unique<OrderedIndex>(0U, keys, fixedLength_, true));
  else
    indexes_.push_back(std::make_unique<ArrivalIndex>(0U, columns_, fixedLength_));
  hasUnique_ = hasKey_;
  entries_.resize(1);
  updateSimple();
}

MemoryTable::~MemoryTable() {
  while (!readers_.empty()) readers_.back()->disconnect();
  while (!writers_.empty()) writers_.back()->disconnect();
}

BaseRow MemoryTable::newRow() const { return BaseRow(fixedLength_, rowType_); }

unsigned MemoryTable::addIndex(const std::vector<std::string>& columnNames) {
  return add([&](unsigned number) {
    return std::make_unique<OrderedIndex>(number, columnsNamed(columnNames), fixedLength_, false);
  });
}

unsigned MemoryTable::addIndex(TvPtr<RowOpsBase> rules) {
  if (rules == nullptr) throw std::invalid_argument("table " + name_ + ": an index needs rules");
  return add([&](unsigned number) {
    if (rules->index() != number)
      throw std::invalid_argument("table " + name_ + ": rules of index " + std::to_string(rules->index()) +
                                  " given to index " + std::to_string(number));
    return makeProgrammedIndex(number, columns_, fixedLength_, std::move(rules));
  });
}

unsigned MemoryTable::add(const std::function<std::unique_ptr<IndexBase>(unsigned)>& make) {
  if (indexes_.size() == maxIndexes)
    throw std::length_error("table " + name_ + " has no room for a further index");
  const auto number = static_cast<unsigned>(indexes_.size());
  std::unique_ptr<IndexBase> added = make(number);
  std::vector<IndexEntry*> rows;
  rows.reserve(size_);
  IndexBase& front = *indexes_.front();
  for (IndexEntry* entry = front.first(); entry != nullptr; entry = front.next(*entry)) rows.push_back(entry);
  std::sort(rows.begin(), rows.end(), [&](const IndexEntry* a, const IndexEntry* b) {
    return front.arrivalOf(*a) < front.arrivalOf(*b);
  });
  for (const std::unique_ptr<IndexBase>& index : indexes_) index->prepareTies();
  // Nothing is changed until all rows stand in the new index.
  std::vector<std::pair<IndexEntry*, IndexEntry*>> joints;
  joints.reserve(size_);
  for (IndexEntry* const first : rows) {
    IndexEntry* last = first;
    for (unsigned i = 0; i + 1 < number; ++i) last = indexes_[i]->inNextIndex(*last);
    if (added->isUnique() && added->findForChange(first->row) != nullptr)
      throw std::invalid_argument("table " + name_ + ": index " + std::to_string(number) +
                                  " admits one row per key, but two rows have one");
    IndexEntry* const entry = added->insert(first->row, front.arrivalOf(*first));
    added->inNextIndex(*entry) = first;
    joints.emplace_back(last, entry);
  }
  entries_.reserve(number + 1);
  indexes_.push_back(std::move(added));
  entries_.resize(number + 1);
  hasUnique_ |= indexes_.back()->isUnique();
  updateSimple();
  for (const auto& [last, entry] : joints) indexes_[number - 1]->inNextIndex(*last) = entry;
  return number;
}

std::vector<tvMetadata::tvColumn> MemoryTable::columnsNamed(const std::vector<std::string>& names) const {
  if (names.empty()) throw std::invalid_argument("table " + name_ + ": an index needs columns");
  std::vector<tvMetadata::tvColumn> found;
  for (const std::string& name : names) {
    const auto column = std::find_if(columns_.begin(), columns_.end(),
                                     [&](const tvMetadata::tvColumn& c) { return c.columnName() == name; });
    if (column == columns_.end())
      throw std::invalid_argument("table " + name_ + " has no column '" + name + "'");
    found.push_back(*column);
  }
  return found;
}

void MemoryTable::capacityIs(std::size_t rows) {
  capacity_ = rows;
  updateSimple();
  considerRoom();
}

void MemoryTable::throwNoIndex(unsigned number) const {
  throw std::out_of_range("table " + name_ + " has no index " + std::to_string(number));
}

void MemoryTable::put(const BaseRow& row) {
  if (indexes_.size() == 1) {
    indexes_.front()->insert(row, ++arrivals_);
  } else {
    prepareEntries(row, {});
    tieEntries();
  }
  ++size_;
}

inline void MemoryTable::reserveNews(std::size_t changes) {
  for (InterfaceState* const reader : readers_) reader->reserve(changes);
}

inline void MemoryTable::tell(Change::Kind kind, const BaseRow& row) noexcept {
  for (InterfaceState* const reader : readers_) reader->add(kind, row);
}

void MemoryTable::insert(BaseRow&& row, InterfaceState& writer) {
  shape_.require(row);
  if (simple_ == nullptr) return insertWithCare(row, writer);
  reserveNews(1);
  const IndexEntry& entry = simple_->take(std::move(row), ++arrivals_);
  ++size_;
  tell(Change::Kind::inserted, entry.row);
}

void MemoryTable::updateSimple() {
  const bool isSimple = !hasKey_ && indexes_.size() == 1 && capacity_ == 0;
  simple_ = isSimple ? static_cast<ArrivalIndex*>(indexes_.front().get()) : nullptr;
}

void MemoryTable::insertWithCare(const BaseRow& row, InterfaceState& writer) {
  requireRoom(writer);
  if (hasUnique_) return putOrReplace(row);
  reserveNews(1);
  put(row);
  tell(Change::Kind::inserted, row);
}

void MemoryTable::putOrReplace(const BaseRow& row) {
  const Meeting met = meet(row, nullptr);
  if (met.entry == nullptr) {
    reserveNews(1);
    put(row);
    tell(Change::Kind::inserted, row);
  } else if (autoUpdate_ == nullptr) {
    replaceAndTell(met, row);
  } else {
    const BaseRow merged = merge(met.entry->row, row);
    replaceAndTell(meet(merged, met.entry), merged);
  }
}

void MemoryTable::replaceAndTell(const Meeting& met, const BaseRow& row) {
  reserveNews(2);
  const BaseRow replaced = met.entry->row;
  replace(met, row);
  tell(Change::Kind::deleted, replaced);
  tell(Change::Kind::inserted, row);
}

void MemoryTable::remove(const BaseRow& row) {
  if (row.isNull() || !indexes_.front()->takes(row)) return;
  IndexEntry* const entry = indexes_.front()->findForChange(row);
  if (entry == nullptr) return;
  reserveNews(1);
  const BaseRow removed = entry->row;
  erase(*entry);
  --size_;
  tell(Change::Kind::deleted, removed);
}

void MemoryTable::end(InterfaceState& writer) {
  const bool isFiller = fillers_ != 0;
  if (isFiller && writer.hasEnded()) return;
  const bool isLast = fillers_ <= 1;
  if (isLast) reserveNews(1);
  if (isFiller) {
    writer.endIs();
    --fillers_;
  }
  if (isLast) tell(Change::Kind::ended, BaseRow());
}

IndexEntry* MemoryTable::inFirstIndex(IndexEntry& entry, std::size_t index) const {
  if (index == 0) return &entry;
  IndexEntry* first = &entry;
  for (; index < indexes_.size(); ++index) first = indexes_[index]->inNextIndex(*first);
  return first;
}

// `stored` is the entry of the row that it is to replace, or null.
MemoryTable::Meeting MemoryTable::meet(const BaseRow& row, IndexEntry* stored) const {
  Meeting met{stored, {}};
  for (std::size_t i = 0; i < indexes_.size(); ++i) {
    if (!indexes_[i]->isUnique()) continue;
    IndexEntry* const found = indexes_[i]->findForChange(row);
    if (found == nullptr) continue;
    IndexEntry* const entry = inFirstIndex(*found, i);
    if (met.entry != nullptr && met.entry != entry)
      throw TvOutOfRange("table " + name_ + ": the row has the key of one row, but in index " +
                         std::to_string(i) + " that of another");
    met.entry = entry;
    met.indexes.set(i);
  }
  return met;
}

// The program gets a handle of its own, so that what it writes does not reach the stored row.
BaseRow MemoryTable::merge(const BaseRow& stored, const BaseRow& row) const {
  BaseRow merged(stored);
  autoUpdate_->autoUpdate(merged, row);
  if (merged.isNull()) throw TvOutOfRange("table " + name_ + ": autoUpdate has left no row");
  shape_.require(merged);
  return merged;
}

// Makes the row's entries in all indexes, or in none when one of them fails; null in the indexes of `except`.
void MemoryTable::prepareEntries(const BaseRow& row, const std::bitset<maxIndexes>& except) {
  std::size_t i = 0;
  ++arrivals_;
  try {
    for (; i < indexes_.size(); ++i) entries_[i] = except[i] ? nullptr : indexes_[i]->insert(row, arrivals_);
  } catch (...) {
    while (i-- > 0)
      if (entries_[i] != nullptr) indexes_[i]->erase(*entries_[i]);
    throw;
  }
}

void MemoryTable::tieEntries() noexcept {
  if (indexes_.size() == 1) return;
  IndexEntry* next = entries_.front();
  for (std::size_t i = entries_.size(); i-- > 0; next = entries_[i])
    indexes_[i]->inNextIndex(*entries_[i]) = next;
}

// Where the index has the same row's entry that is next in the ring, if there is more than one.
IndexEntry* MemoryTable::inNextIndex(std::size_t index, IndexEntry& entry) const noexcept {
  return indexes_.size() == 1 ? &entry : indexes_[index]->inNextIndex(entry);
}

// Where the row has the key of the stored one it takes over that one's entry: the key cannot stand twice.
void MemoryTable::replace(const Meeting& met, const BaseRow& row) {
  prepareEntries(row, met.indexes);
  IndexEntry* old = met.entry;
  for (std::size_t i = 0; i < indexes_.size(); ++i) {
    IndexEntry* const oldInNext = inNextIndex(i, *old);
    if (entries_[i] == nullptr) {
      indexes_[i]->replaceRow(*old, row, arrivals_);
      entries_[i] = old;
    } else {
      indexes_[i]->erase(*old);
    }
    old = oldInNext;
  }
  tieEntries();
}

void MemoryTable::erase(IndexEntry& first) noexcept {
  IndexEntry* entry = &first;
  for (std::size_t i = 0; i < indexes_.size(); ++i) {
    IndexEntry* const next = inNextIndex(i, *entry);
    indexes_[i]->erase(*entry);
    entry = next;
  }
}

void MemoryTable::connect(InterfaceState& interface) {
  (interface.isReader() ? readers_ : writers_).push_back(&interface);
}

void MemoryTable::disconnect(InterfaceState& interface) noexcept {
  std::erase(interface.isReader() ? readers_ : writers_, &interface);
  considerRoom();
  considerWriters();
}

bool MemoryTable::isReaderToComeFor(const Client* writer) const {
  return writer != nullptr &&
         std::any_of(readers_.begin(), readers_.end(),
                     [&](const InterfaceState* reader) { return reader->isToComeFor(writer); });
}

void MemoryTable::considerWriters() noexcept {
  for (InterfaceState* const writer : writers_) writer->consider();
}

// A writer's own client hears of what it has written once it has done with it: to wait for that would be to
// wait for itself.
std::size_t MemoryTable::undeliveredBy(const InterfaceState& writer) const {
  std::size_t most = 0;
  for (const InterfaceState* const reader : readers_)
    if (!reader->isOfClientOf(writer)) most = std::max(most, reader->undelivered());
  return most;
}

void MemoryTable::requireRoom(InterfaceState& writer) {
  if (capacity_ == 0 || undeliveredBy(writer) < capacity_) return;
  writer.blockedIs(true);
  hasBlocked_ = true;
  ++refusals_;
  throw TvMaxRowsExceeded("table " + name_ + ": " + std::to_string(capacity_) +
                          " rows wait to be read, it can take no more");
}

// Writers go on once a quarter of a large capacity is free, since every stop costs them a suspended run.
void MemoryTable::unblockWriters() noexcept {
  const std::size_t free = std::max<std::size_t>(1, capacity_ / 4);
  hasBlocked_ = false;
  for (InterfaceState* const writer : writers_) {
    if (!writer->isBlocked()) continue;
    if (capacity_ != 0 && undeliveredBy(*writer) + free > capacity_)
      hasBlocked_ = true;
    else
      writer->blockedIs(false);
  }
}

}  // namespace Tavro
