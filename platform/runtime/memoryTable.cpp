#include "memoryTable.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <stdexcept>
#include <utility>

#include "arrivalIndex.h"
#include "orderedIndex.h"

namespace Tavro {
namespace {

constexpr std::size_t maxIndexes = 256;

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

// Tells all readers of changes, or none: what has been staged is withdrawn unless it is made known.
class MemoryTable::Announcement {
 public:
  explicit Announcement(const std::vector<InterfaceState*>& readers) : readers_(readers) {}
  Announcement(const Announcement&) = delete;
  Announcement& operator=(const Announcement&) = delete;
  ~Announcement() {
    if (made_) return;
    for (InterfaceState* const reader : readers_) reader->withdraw();
  }

  void add(Change::Kind kind, const BaseRow& row) {
    for (InterfaceState* const reader : readers_) reader->stage(kind, row);
  }
  void make() noexcept {
    made_ = true;
    for (InterfaceState* const reader : readers_) reader->settle();
  }

 private:
  const std::vector<InterfaceState*>& readers_;
  bool made_ = false;
};

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
}

MemoryTable::~MemoryTable() {
  while (!readers_.empty()) readers_.back()->disconnect();
  while (!writers_.empty()) writers_.back()->disconnect();
}

BaseRow MemoryTable::newRow() const {
  BaseRow row(fixedLength_);
  row.rowTypeIs(rowType_);
  return row;
}

unsigned MemoryTable::addIndex(const std::vector<std::string>& columnNames) {
  if (indexes_.size() == maxIndexes)
    throw std::length_error("table " + name_ + " has no room for a further index");
  const auto number = static_cast<unsigned>(indexes_.size());
  auto added = std::make_unique<OrderedIndex>(number, columnsNamed(columnNames), fixedLength_, false);
  // The rows' chains end at what was the last index; nothing is changed until all rows stand in the new one.
  std::vector<std::pair<IndexEntry*, IndexEntry*>> joints;
  joints.reserve(size_);
  for (IndexEntry* entry = indexes_.front()->first(); entry != nullptr; entry = entry->next) {
    IndexEntry* last = entry;
    while (last->inNextIndex != nullptr) last = last->inNextIndex;
    joints.emplace_back(last, added->insert(entry->row, entry->arrival));
  }
  indexes_.push_back(std::move(added));
  for (const auto& [last, entry] : joints) last->inNextIndex = entry;
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
  considerRoom();
}

IndexBase& MemoryTable::index(unsigned number) const {
  if (number >= indexes_.size())
    throw std::out_of_range("table " + name_ + " has no index " + std::to_string(number));
  return *indexes_[number];
}

void MemoryTable::insert(const BaseRow& row, InterfaceState& writer) {
  shape_.require(row);
  requireRoom(writer);
  IndexEntry* const replaced = hasKey_ ? indexes_.front()->find(row) : nullptr;
  Announcement news(readers_);
  if (replaced != nullptr) news.add(Change::Kind::deleted, replaced->row);
  news.add(Change::Kind::inserted, row);
  if (replaced != nullptr) {
    replace(*replaced, row);
  } else {
    insertFrom(0, row);
    ++size_;
  }
  news.make();
}

void MemoryTable::remove(const BaseRow& row) {
  if (row.isNull() || !indexes_.front()->takes(row)) return;
  IndexEntry* const entry = indexes_.front()->find(row);
  if (entry == nullptr) return;
  Announcement news(readers_);
  news.add(Change::Kind::deleted, entry->row);
  eraseFrom(0, entry);
  --size_;
  news.make();
}

void MemoryTable::end() {
  Announcement news(readers_);
  news.add(Change::Kind::ended, BaseRow());
  news.make();
}

// Puts the row into every index from `firstIndex` on and returns its entry in that one, or null if there is
// none.
IndexEntry* MemoryTable::insertFrom(std::size_t firstIndex, const BaseRow& row) {
  IndexEntry* first = nullptr;
  IndexEntry** joint = &first;
  try {
    for (std::size_t i = firstIndex; i < indexes_.size(); ++i) {
      *joint = indexes_[i]->insert(row, arrivals_ + 1);
      joint = &(*joint)->inNextIndex;
    }
  } catch (...) {
    eraseFrom(firstIndex, first);
    throw;
  }
  ++arrivals_;
  return first;
}

void MemoryTable::eraseFrom(std::size_t firstIndex, IndexEntry* entry) noexcept {
  for (std::size_t i = firstIndex; entry != nullptr; ++i) {
    IndexEntry* const inNextIndex = entry->inNextIndex;
    indexes_[i]->erase(*entry);
    entry = inNextIndex;
  }
}

void MemoryTable::replace(IndexEntry& entry, const BaseRow& row) {
  IndexEntry* const others = insertFrom(1, row);
  eraseFrom(1, entry.inNextIndex);
  entry.inNextIndex = others;
  indexes_.front()->replaceRow(entry, row, arrivals_);
}

void MemoryTable::connect(InterfaceState& interface) {
  (interface.isReader() ? readers_ : writers_).push_back(&interface);
}

void MemoryTable::disconnect(InterfaceState& interface) noexcept {
  std::erase(interface.isReader() ? readers_ : writers_, &interface);
  considerRoom();
}

std::size_t MemoryTable::undelivered() const {
  std::size_t most = 0;
  for (const InterfaceState* const reader : readers_) most = std::max(most, reader->undelivered());
  return most;
}

void MemoryTable::requireRoom(InterfaceState& writer) {
  if (capacity_ == 0 || undelivered() < capacity_) return;
  writer.blockedIs(true);
  ++refusals_;
  throw TvMaxRowsExceeded("table " + name_ + ": " + std::to_string(capacity_) +
                          " rows wait to be read, it can take no more");
}

// Writers go on once a quarter of a large capacity is free, since every stop costs them a suspended run.
void MemoryTable::considerRoom() noexcept {
  if (std::none_of(writers_.begin(), writers_.end(), [](const InterfaceState* w) { return w->isBlocked(); }))
    return;
  if (capacity_ != 0 && undelivered() + std::max<std::size_t>(1, capacity_ / 4) > capacity_) return;
  for (InterfaceState* const writer : writers_) writer->blockedIs(false);
}

}  // namespace Tavro
