#pragma once

#include <bitset>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Tavro/database.h"
#include "index.h"
#include "interfaceState.h"
#include "rowShape.h"

namespace Tavro {

class ArrivalIndex;

// The columns of a table, laid out in the order of their definitions. Throws as Database::createTable.
std::vector<tvMetadata::tvColumn> layOut(const std::string& tableName,
                                         const std::vector<ColumnDefinition>& definitions);

// A table in memory: its indexes, and the interfaces that write to it and read from it. Every change is made
// in all indexes and told to all readers, or not at all.
class MemoryTable final : public Table {
 public:
  // `columns` as `layOut` gives them.
  MemoryTable(std::string name, unsigned short rowType, std::vector<tvMetadata::tvColumn> columns);
  // Disconnects the interfaces.
  ~MemoryTable() override;

  const std::string& name() const override { return name_; }
  unsigned short rowType() const override { return rowType_; }
  len_t fixedLength() const override { return fixedLength_; }
  const std::vector<tvMetadata::tvColumn>& columns() const override { return columns_; }
  bool hasKey() const override { return hasKey_; }
  std::size_t size() const override { return size_; }
  BaseRow newRow() const override;
  unsigned addIndex(const std::vector<std::string>& columnNames) override;
  unsigned addIndex(TvPtr<RowOpsBase> rules) override;
  void autoUpdateIs(TvPtr<RowOpsBase> rules) override { autoUpdate_ = std::move(rules); }
  void capacityIs(std::size_t rows) override;
  std::size_t refusals() const override { return refusals_; }
  void fillerCountIs(std::size_t writers) override { fillers_ = writers; }

  // Throws std::out_of_range for a number that the table does not have.
  IndexBase& index(unsigned number) const {
    if (number >= indexes_.size()) [[unlikely]]
      throwNoIndex(number);
    return *indexes_[number];
  }

  // The table's side of TvTableInterface::rowIs and rowDel.
  void insert(BaseRow&& row, InterfaceState& writer);
  void remove(const BaseRow& row);
  void end(InterfaceState& writer);

  bool isBeingFilled() const { return fillers_ != 0; }
  // Whether a writer of that client would write before some other client's reader is there to hear of it.
  bool isReaderToComeFor(const Client* writer) const;
  // Puts the writers before the scheduler. Called when a reader has come or gone.
  void considerWriters() noexcept;

  // Interfaces take themselves out before they go.
  void connect(InterfaceState& interface);
  void disconnect(InterfaceState& interface) noexcept;
  // Tells blocked writers that they can go on, if so. Called when a reader has been told of something or has
  // gone.
  void considerRoom() noexcept {
    if (hasBlocked_) unblockWriters();
  }

 private:
  static constexpr std::size_t maxIndexes = 256;

  // The stored row whose key a row has.
  struct Meeting {
    // In index 0; null when the row meets none.
    IndexEntry* entry;
    // The unique indexes in which it has the key.
    std::bitset<maxIndexes> indexes;
  };

  void updateSimple();
  [[noreturn]] void throwNoIndex(unsigned number) const;
  unsigned add(const std::function<std::unique_ptr<IndexBase>(unsigned)>& make);
  std::vector<tvMetadata::tvColumn> columnsNamed(const std::vector<std::string>& names) const;
  // Readers are told of a change once it has been made, which cannot fail any more: before it, room is made
  // for as many as there will be.
  void reserveNews(std::size_t changes);
  void tell(Change::Kind kind, const BaseRow& row) noexcept;

  void unblockWriters() noexcept;
  void requireRoom(InterfaceState& writer);
  std::size_t undeliveredBy(const InterfaceState& writer) const;

  IndexEntry* inFirstIndex(IndexEntry& entry, std::size_t index) const;
  Meeting meet(const BaseRow& row, IndexEntry* stored) const;
  BaseRow merge(const BaseRow& stored, const BaseRow& row) const;
  void prepareEntries(const BaseRow& row, const std::bitset<maxIndexes>& except);
  void tieEntries() noexcept;
  IndexEntry* inNextIndex(std::size_t index, IndexEntry& entry) const noexcept;
  void insertWithCare(const BaseRow& row, InterfaceState& writer);
  void put(const BaseRow& row);
  void putOrReplace(const BaseRow& row);
  void replaceAndTell(const Meeting& met, const BaseRow& row);
  void replace(const Meeting& met, const BaseRow& row);
  void erase(IndexEntry& entry) noexcept;

  std::string name_;
  unsigned short rowType_;
  std::vector<tvMetadata::tvColumn> columns_;
  len_t fixedLength_;
  RowShape shape_;
  bool hasKey_ = false;

  std::vector<std::unique_ptr<IndexBase>> indexes_;
  // An inserted row can meet a stored one.
  bool hasUnique_ = false;
  // The one index of a table where a row only ever comes behind the others, whoever reads it; or null.
  ArrivalIndex* simple_ = nullptr;
  // The entries, one for each index, of the row that is being put in.
  std::vector<IndexEntry*> entries_;
  TvPtr<RowOpsBase> autoUpdate_;
  std::size_t size_ = 0;
  std::uint64_t arrivals_ = 0;

  std::size_t capacity_ = 0;
  std::size_t refusals_ = 0;
  // A writer may be blocked.
  bool hasBlocked_ = false;
  std::size_t fillers_ = 0;
  std::vector<InterfaceState*> readers_;
  std::vector<InterfaceState*> writers_;
};

}  // namespace Tavro
