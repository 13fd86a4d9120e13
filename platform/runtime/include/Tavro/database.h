#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Tavro/RowOpsBase.h"
#include "Tavro/export.h"
#include "Tavro/tavroDb.h"
#include "Tavro/tvMetadata.h"
#include "Tavro/tvPtr.h"

// The platform's own interface to the database, for programs that host it: tables are made here, filled, and
// the scheduler is run.
namespace Tavro {

class Database;
class RunQueue;
class TvTableInterface;

// One declared column.
struct ColumnDefinition {
  std::string name;
  TavroTypes type;
  bool isArray = false;
  bool isKey = false;
};

// Runs what is runnable, one unit at a time, in the order in which it became runnable. Single-threaded.
class TAVRO_EXPORT SchedulerQueue {
 public:
  SchedulerQueue();
  SchedulerQueue(const SchedulerQueue&) = delete;
  SchedulerQueue& operator=(const SchedulerQueue&) = delete;
  ~SchedulerQueue();

  // From now on a random one of what is runnable runs next; the same number gives the same order. Each
  // interface is still told of things in their order. For finding what depends on the order.
  void seedIs(std::uint64_t seed);

  // Runs one unit of work. False when nothing was runnable, and when called from inside a unit of work. An
  // exception of the unit passes through, unless a Client takes it; the unit then counts as done.
  bool step();
  // Runs until nothing is runnable.
  void runUntilIdle();

 private:
  friend class Database;
  std::unique_ptr<RunQueue> queue_;
};

// A table: rows shared by handle, in the order of index 0 and of further indexes.
class TAVRO_EXPORT Table {
 public:
  virtual ~Table() = default;

  virtual const std::string& name() const = 0;
  virtual unsigned short rowType() const = 0;
  // Length of the fixed part of the table's rows, in bytes.
  virtual len_t fixedLength() const = 0;
  // Columns in order: the first at offset 8, each directly behind the one before.
  virtual const std::vector<tvMetadata::tvColumn>& columns() const = 0;
  virtual bool hasKey() const = 0;
  virtual std::size_t size() const = 0;

  // A fresh row of the table: zeroed, with its row type.
  virtual BaseRow newRow() const = 0;

  // Adds an ordered, not unique index over the named columns and returns its number, from 1. Throws
  // std::invalid_argument for a column that does not exist and for no columns, and std::length_error when the
  // table has 256 indexes.
  virtual unsigned addIndex(const std::vector<std::string>& columnNames) = 0;

  // Adds an index whose rules are a program, and returns its number, from 1, which must be `rules->index()`.
  // - rules->ordered(): rows stand in the order of `less`, those that it does not tell apart in order of
  //   arrival. A lookup yields the first that is neither less than the key nor greater.
  // - Otherwise rows stand in order of arrival, and a lookup yields the first of the key's `hash` that
  // `equals`
  //   it. There is no lower bound.
  // - rules->unique(): one row per key. An inserted row replaces the one whose key it has in a unique index,
  //   index 0 of a table with a key being another; when it has the keys of different rows, TvOutOfRange is
  //   thrown.
  // A row comes before the program only if it has all columns of the table. Whatever the program throws while
  // a row is inserted or looked up passes through, and the table and what its readers are told are as before.
  // Throws std::invalid_argument for no rules, for a number that does not fit, and for a unique index when
  // two rows of the table have one key; std::length_error as above; and what the program throws. Nothing is
  // added then.
  virtual unsigned addIndex(TvPtr<RowOpsBase> rules) = 0;

  // From now on a row that has the key of a stored one in a unique index is merged into that one by
  // `rules->autoUpdate`, and the result replaces it; null, the default, for replacing it as above. Readers
  // see the stored row deleted and the result inserted, even when the program has changed nothing: that, too,
  // is the answer to an insertion, and may have been waited for. The stored row itself is never written to.
  // TvOutOfRange is thrown when the result does not fit the table or has the key of a further row.
  virtual void autoUpdateIs(TvPtr<RowOpsBase> rules) = 0;

  // The number of insertions that may stand undelivered to the slowest reader before the table blocks a
  // writer; 0, the default, for no limit. Readers that were never activated do not count, nor do those of the
  // writer's own client.
  virtual void capacityIs(std::size_t rows) = 0;
  // How often the table has refused a row because of its capacity.
  virtual std::size_t refusals() const = 0;

  // The number of writers that fill the table before its end of data: 0, the default, when every end-of-data
  // mark is told to the readers at once. Otherwise they are told of the last one only, where further marks of
  // one writer count for nothing; and until then a reader without a row handler, which reads the table once
  // and for all, is not told that it is ready.
  virtual void fillerCountIs(std::size_t writers) = 0;
};

// Who owns some interfaces, such as one operator.
// - From a refused row of one of its writers until that writer has been told that there is room, its
//   readers are told nothing: a deletion would otherwise overtake the very row that it is to delete.
// - Its writers are told that they are ready when the readers of their tables that belong to other
//   clients and have a row handler have been activated, so that those miss nothing. Clients whose tables
//   form a cycle would wait for each other.
// - What its handlers throw ends it, and nobody else.
class TAVRO_EXPORT Client {
 public:
  using FailureHandler = std::function<void(std::exception_ptr)>;

  // `failed` is called, from the scheduler's loop, when a handler of the client has thrown anything else than
  // TvTableFull. The client has been taken down by then. It must not destroy the client. The database has to
  // outlive it.
  Client(Database& database, FailureHandler failed);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  // Its interfaces go on without a client.
  ~Client();

  // Does `work`; the interfaces that it binds belong to the client from now on.
  void bind(const std::function<void()>& work);
  // Disconnects all interfaces. What they wrote stays, and nothing is told to them any more.
  void takeDown() noexcept;

 private:
  friend class InterfaceState;

  bool isHeld() const;
  void considerReaders() noexcept;
  void fail(const std::exception_ptr& cause);

  Database& database_;
  FailureHandler failed_;
  std::vector<InterfaceState*> interfaces_;
};

// Tables and the scheduler that serves their interfaces. Independent of every other database.
class TAVRO_EXPORT Database {
 public:
  Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  // Makes a table, which lives until `clear`. Throws std::invalid_argument for a name that exists, for no
  // columns, for two columns of one name, and for rows that would not fit 65535 bytes; TvOutOfRange for a
  // column type that does not exist; std::length_error when the database has 65534 tables.
  Table& createTable(const std::string& name, const std::vector<ColumnDefinition>& columns);
  // Null when there is no such table.
  Table* findTable(const std::string& name);
  // The table at `path`: its name, with or without "." and an alias behind it; null when there is none.
  Table* tableAt(const std::string& path);

  // Connects the interface to the table at `path`, as TavroDB::bindInterface does.
  void bindInterface(TvTableInterface& interface, const std::string& path);

  SchedulerQueue& scheduler();

  // Drops all tables. Their interfaces are disconnected and told nothing more; iterators on their rows become
  // default iterators. Row-type ids start anew.
  void clear();

 private:
  friend class Client;
  struct Contents;
  std::unique_ptr<Contents> contents_;
};

// While it lives, getTavroDb() yields another database in the thread that has made it: for hosts that run
// independent databases on threads of their own.
class TAVRO_EXPORT ThreadDatabase {
 public:
  explicit ThreadDatabase(TvPtr<TavroDB> database);
  ThreadDatabase(const ThreadDatabase&) = delete;
  ThreadDatabase& operator=(const ThreadDatabase&) = delete;
  ~ThreadDatabase();

 private:
  TvPtr<TavroDB> former_;
};

}  // namespace Tavro
