#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Tavro/Scheduler.h"
#include "Tavro/baseRow.h"
#include "Tavro/export.h"
#include "Tavro/tvPtr.h"

namespace Tavro {

// Owned by the platform; a program of this system never looks inside.
class Database;
class IndexBase;
class InterfaceState;
struct IndexEntry;

// A position in a table under one of its indexes. Valid whatever is inserted or deleted meanwhile: a position
// on a row that is deleted moves to that row's successor. A default iterator equals no table's end.
class TAVRO_EXPORT TvRowIterator {
 public:
  TvRowIterator() = default;
  TvRowIterator(const TvRowIterator& other);
  TvRowIterator& operator=(const TvRowIterator& other);
  ~TvRowIterator() { detach(); }

  bool operator==(const TvRowIterator& other) const {
    return index_ == other.index_ && entry_ == other.entry_;
  }

  // The row at the position, sharing the stored row's buffer; a null row at the end and on a default
  // iterator.
  BaseRow operator*() const;
  // Moves to the next row and returns the old position. Stays where it is at the end.
  TvRowIterator operator++(int);
  TvRowIterator& operator++();
  // Makes `row` the row at the position, as operator* gives it; then moves to the next row, as operator++
  // does. False at the end.
  bool next(BaseRow& row);

 private:
  friend class IndexBase;

  TvRowIterator(IndexBase* index, IndexEntry* entry) { attach(index, entry); }
  void attach(IndexBase* index, IndexEntry* entry);
  void detach();
  // From a row.
  void step();
  [[gnu::cold]] static bool takeNothing(BaseRow& row);
  [[gnu::cold]] void goToEnd();

  IndexBase* index_ = nullptr;
  // Null stands for the end.
  IndexEntry* entry_ = nullptr;
  // Links the iterators that stand on a row of the index: a deletion has to find them.
  TvRowIterator* nextOnIndex_ = nullptr;
  TvRowIterator* previousOnIndex_ = nullptr;
};

// One client's connection to one table. Handlers are called from the scheduler's loop only, one at a time,
// never from inside a call that the client itself makes here. Allocated by its client and disconnected by its
// destructor, bound or not, even from inside one of its handlers.
//
// What the scheduler tells, one notification per turn:
// - a writer: that it is ready, once, after it was bound; then every change of blocking, in order.
// - a reader whose client is ready (`clientReadyIs`): that it is ready, once; then, while it is active, the
//   table's changes in order. A change of a kind that the reader has no handler for is not kept for it.
// A notification whose handler throws TvTableFull is kept and tried again after the next activate(false)
// here, or after some writer of the database was told that it is no longer blocked. Any other exception of a
// handler passes through the scheduler, and the notification counts as delivered.
//
// Every call but the constructors, the destructor and `endHandlerIs` throws std::logic_error while the
// interface is not bound to a table, and when its table has been dropped.
class TAVRO_EXPORT TvTableInterface : public Schedulable {
 public:
  // Reads the table and is told of its changes.
  static constexpr unsigned char readMode = 5;
  // Writes to the table and is told when it blocks.
  static constexpr unsigned char writeMode = 2;

  using ReadyHandler = std::function<void()>;
  using RowHandler = std::function<void(const BaseRow&)>;
  using BlockHandler = std::function<void(bool)>;

  // Handlers may be empty and are then not called. Throws std::invalid_argument for a mode that is neither.
  TvTableInterface(const std::string& name, const std::string& alias, unsigned char mode, ReadyHandler ready,
                   RowHandler row, RowHandler del, BlockHandler block);
  // Handlers are member functions of `target`, which is not owned; null for none.
  template <typename T>
  TvTableInterface(const std::string& name, const std::string& alias, unsigned char mode, T* target,
                   void (T::*ready)(), void (T::*row)(const BaseRow&), void (T::*del)(const BaseRow&),
                   void (T::*block)(bool))
      : TvTableInterface(name, alias, mode,
                         ready ? ReadyHandler([=] { (target->*ready)(); }) : ReadyHandler(),
                         row ? RowHandler([=](const BaseRow& r) { (target->*row)(r); }) : RowHandler(),
                         del ? RowHandler([=](const BaseRow& r) { (target->*del)(r); }) : RowHandler(),
                         block ? BlockHandler([=](bool b) { (target->*block)(b); }) : BlockHandler()) {}
  ~TvTableInterface() override;

  // activate(true): changes of the table are kept, in order, from here on, since the client is about to walk
  // it. activate(false): what was kept is delivered, then what comes. Before the first of them nothing is
  // kept.
  void activate(bool reading);
  // Delivery stops; what comes is kept. No effect before the first `activate`.
  void deactivate(bool blocked);

  // Inserts the row, shared and not copied. It replaces the row whose key it has in a unique index: readers
  // see that one deleted, then the new one inserted. A null row is the end-of-data mark: not stored, told to
  // the readers. Throws TvMaxRowsExceeded when the table cannot take a row now (the block handler tells when
  // it can again), TvOutOfRange for a row that does not fit the table or has the keys of several rows, what
  // the program of an index throws, and std::logic_error on a reader. After a throw the table is as it was.
  void rowIs(BaseRow& row);
  // The same for a handle that is not needed any more, which the table may take over. After a throw it is as
  // it was.
  void rowIs(BaseRow&& row);
  // Removes the stored row that `row` names by key, or by equality in a table without key. Never blocks. No
  // effect when there is none, or when `row` has not the columns that are compared. Throws std::logic_error
  // on a reader.
  void rowDel(const BaseRow& row);

  // Positions under index number `index`. Each throws std::out_of_range for an index that the table does not
  // have; `lower_bound` throws std::runtime_error under an index without an order; both lookups throw
  // TvNullRow for a null key and TvOutOfRange for one that has not the index's columns.
  TvRowIterator begin(unsigned char index) const;
  TvRowIterator end(unsigned char index) const;
  // The first row that matches `key`, or the end.
  TvRowIterator find(const BaseRow& key, unsigned char index) const;
  // Makes `row` the row at that position, for who wants no more than that; a null row at the end, and false.
  bool findRow(const BaseRow& key, unsigned char index, BaseRow& row) const;
  // The first row that is not less than `key`.
  TvRowIterator lower_bound(const BaseRow& key, unsigned char index) const;

  // Called when the end-of-data mark reaches this reader, in its place among the rows. Not part of what a
  // table tells an operator; for clients that print or chain tables.
  void endHandlerIs(ReadyHandler end);

  bool runnable() const override;
  bool runOnce() override;

  InterfaceState& state() { return *state_; }

 private:
  std::unique_ptr<InterfaceState> state_;
};

// The database of a process.
class TAVRO_EXPORT TavroDB {
 public:
  TavroDB();
  TavroDB(const TavroDB&) = delete;
  TavroDB& operator=(const TavroDB&) = delete;
  ~TavroDB();

  // The row-type id of a table, or 65535 for a name that does not exist. The flag means nothing here.
  unsigned int tableTypeId(const std::string& name, bool);

  // The metadata row of a table's class, or a null row: the u32 at byte 4 is the row-type id.
  static BaseRow tvClass(const std::string& name);

  // Connects the interface to the table at `path`: the table's name, with or without "." and an alias behind
  // it. Throws std::invalid_argument when there is no such table, and std::logic_error when the interface is
  // bound already. The flag means nothing here.
  void bindInterface(TvTableInterface& interface, const std::string& path, bool);

  // The platform's own side of the database: tables, indexes, scheduler.
  Database& database() { return *database_; }

 private:
  std::unique_ptr<Database> database_;
};

// The database of the process; every call yields the same one, unless a host gives a thread one of its own.
TAVRO_EXPORT TvPtr<TavroDB> getTavroDb();

}  // namespace Tavro
