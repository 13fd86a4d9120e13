#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Tavro/database.h"
#include "index.h"
#include "interfaceState.h"
#include "rowShape.h"

namespace Tavro {

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
  void capacityIs(std::size_t rows) override;
  std::size_t refusals() const override { return refusals_; }

  // Throws std::out_of_range for a number that the table does not have.
  IndexBase& index(unsigned number) const;

  // The table's side of TvTableInterface::rowIs and rowDel.
  void insert(const BaseRow& row, InterfaceState& writer);
  void remove(const BaseRow& row);
  void end();

  // Interfaces take themselves out before they go.
  void connect(InterfaceState& interface);
  void disconnect(InterfaceState& interface) noexcept;
  // Tells blocked writers that they can go on, if so. Called when a reader has been told of something or has
  // gone.
  void considerRoom() noexcept;

 private:
  class Announcement;

  std::vector<tvMetadata::tvColumn> columnsNamed(const std::vector<std::string>& names) const;
  void requireRoom(InterfaceState& writer);
  std::size_t undelivered() const;

  IndexEntry* insertFrom(std::size_t firstIndex, const BaseRow& row);
  void eraseFrom(std::size_t firstIndex, IndexEntry* entry) noexcept;
  void replace(IndexEntry& entry, const BaseRow& row);

  std::string name_;
  unsigned short rowType_;
  std::vector<tvMetadata::tvColumn> columns_;
  len_t fixedLength_;
  RowShape shape_;
  bool hasKey_ = false;

  std::vector<std::unique_ptr<IndexBase>> indexes_;
  std::size_t size_ = 0;
  std::uint64_t arrivals_ = 0;

  std::size_t capacity_ = 0;
  std::size_t refusals_ = 0;
  std::vector<InterfaceState*> readers_;
  std::vector<InterfaceState*> writers_;
};

}  // namespace Tavro
