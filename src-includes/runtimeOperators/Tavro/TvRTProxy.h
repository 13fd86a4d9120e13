#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Tavro/RowOpsBase.h"
#include "Tavro/TvRTContext.h"
#include "Tavro/baseRow.h"
#include "Tavro/export.h"
#include "Tavro/tavroDb.h"
#include "Tavro/tvPtr.h"

namespace Tavro::TvRT {

// A cursor into an input table.
struct VtiCtrl {
  TvRowIterator iter;
  unsigned short indexNum = 0;
  bool isInput = false;
};

// The host of one running operator: joins a loaded Context to the tables of the platform. Rows that the
// program reads and writes go through here, and every notification from a table comes in here. A one-shot
// query runs its ready entry once and ends with an end-of-data mark; a standing query then goes on reacting
// to each new row.
//
// The order of calls: factory; paramMapIs, if wanted; enable, once; then the platform notifies. Notifications
// of one Proxy must come one at a time, the first only after `enable` has returned. Dropping the last handle
// ends the operator.
class TAVRO_EXPORT Proxy {
 public:
  using Parameters = std::unordered_map<std::string, std::string>;

  // Loads the program at `path` and runs its "init" entry, which must not touch tables. `params` holds
  // parameter values and table paths. Throws std::invalid_argument when there is no such file, and what
  // Loader::load and the run throw.
  static TvPtr<Proxy> factory(const std::string& path, bool standing);
  static TvPtr<Proxy> factory(const std::string& path, const Parameters& params, bool standing);
  static TvPtr<Proxy> factoryImpl(const std::string& path, const Parameters& params, bool standing);

  // Takes the context over. Runs nothing.
  Proxy(Context* context, bool standing);
  Proxy(Context* context, const Parameters& params, bool standing);
  Proxy(const Proxy&) = delete;
  Proxy& operator=(const Proxy&) = delete;
  virtual ~Proxy();

  // Runs the "init" entry of the proxy's own context. The arguments are not used.
  void init(const std::string& path, Context* context);

  // Connects the operator to its tables: an interface for each input, bound in table order, then the client's
  // parameter values, then the output. Called once. What the platform throws passes through.
  void enable();

  // Replaces parameter values and table paths; later calls of pathKey and enable see them.
  void paramMapIs(const Parameters& params);
  // The path that the client gave for `key`, or `key`.
  std::string pathKey(const std::string& key);
  // The table's name, ".", its alias.
  std::string pathKeyKey(TableBindInfo* info);
  // The input interface under a path key, or null; asking leaves an entry.
  TvTableInterface* observer(const std::string& key);

  // One lock for the process. The library takes it nowhere; it is there for the platform.
  static void lockReg();
  static void unlockReg();
  // Deliberately without effect.
  void regRowOp(RowOpsBase*) {}
  void unregRowOp(RowOpsBase*) {}

  // ---- notifications, called by the platform. What a run throws passes through, TvTableFull among it when
  // the operator is suspended: the platform then keeps the notification and tries again later.

  // Input `index` is ready; the last of them starts the ready entry `entry`. Label 0 runs nothing.
  void onReady(len_t index, len_t entry);
  // A row has arrived in table `index`: it goes into the row slot, and the program's row entry runs if it has
  // one.
  void onRow(len_t index, const BaseRow& row);
  // A row has left table `index`: it is deleted from the output as it is.
  void onDel(len_t index, const BaseRow& row);
  // The output can be written to: the inputs may be considered.
  void outputReady();
  // The output blocks: deliveries stop, unless a run is suspended and refuses them anyway. Or it takes rows
  // again: a suspended run goes on, and the inputs deliver again.
  void outputBlock(bool blocked);

  // ---- row access, called by the context. Throw std::out_of_range for an index that is no input.

  // The row that matches `key` under an index, or a null row. Throws TvNullRow on a null key.
  BaseRow fetchRow(len_t index, BaseRow key, len_t indexNum);
  // The same for a key row that the caller keeps, which takes the row type of the table's rows; makes `row`
  // that row. False when it is null.
  bool find(len_t index, BaseRow& key, len_t indexNum, BaseRow& row);
  void lower_bound(len_t index, BaseRow key, len_t indexNum);
  void begin(len_t index, len_t indexNum);
  // The row at the cursor, which moves on, or a null row behind the last.
  BaseRow nextRow(len_t index);
  // Where the table's `begin` or `lower_bound` and the rows taken since have led to; owned by the proxy.
  TvRowIterator& cursor(len_t index) {
    const auto cursor = rowIters.begin() + index;
    if (cursor >= rowIters.end() || !cursor->isInput) [[unlikely]]
      throwNoInput(index, "table");
    return cursor->iter;
  }
  void insertRow(BaseRow& row);
  // The same for a handle that is not needed any more.
  void insertRow(BaseRow&& row) { tableOut().rowIs(std::move(row)); }
  // The second argument selects nothing.
  void deleteRow(const BaseRow& row, len_t);

  // The loaded program and the state of its run, for clients that show them.
  const Context& program() const { return *context; }

  // ---- statistics

  void snapshotStats();
  // What has built up since the last call, which resets it.
  long long getTimeDuration();
  long long getTotalInstructionsExecuted();
  // Always 1, whatever has run.
  long long getInstCount() const { return 1; }

 private:
  // Tells all inputs the same thing.
  template <typename Tell>
  void forEachInput(const Tell& tell);
  [[noreturn, gnu::cold]] static void throwNoInput(len_t index, const char* what);
  TvTableInterface& input(len_t index, const char* what) const;
  [[noreturn, gnu::cold]] static void throwNoOutput();
  TvTableInterface& tableOut() const {
    if (output == nullptr) [[unlikely]]
      throwNoOutput();
    return *output;
  }
  void typeKey(len_t index, BaseRow& key) const;
  TvTableInterface* newInput(TableBindInfo& info, len_t readyEntry);
  void applyParameters();
  void finish();

  TvPtr<TavroDB> db;
  Context* context;
  Parameters paramMap;
  std::vector<VtiCtrl> rowIters;
  std::unordered_map<std::string, TvTableInterface*> observers{10};
  std::vector<TvTableInterface*> inputs;
  TvTableInterface* output = nullptr;
  std::uint64_t readyMask = 0;
  std::uint64_t expectedMask = 0;
  bool standing;
  bool outputBlocked = false;
  std::uint64_t totalInstructions = 0;
  std::uint64_t totalTime = 0;
};

// What is done for every row.

inline Proxy& Context::host(const char* what, len_t table) const {
  if (proxy == nullptr) [[unlikely]]
    throwNoHost(what, table);
  return *proxy;
}

inline bool Context::fetchRow(len_t table, len_t index) {
  Proxy& tables = host("input row", table);
  BaseRow& key = getRow(keyRowIdx);
  if (!hasRow(table)) [[unlikely]]
    throwNoHost("input row", table);
  return tables.find(table, key, index, rows[table].row);
}

inline bool Context::nextRow(len_t table) {
  TvRowIterator& cursor = host("table", table).cursor(table);
  return cursor.next(slotToReplace(table));
}

// The slot is tested before the host sees it: the row that it would be given lies outside of what we own.
inline void Context::insertRow(len_t table) {
  if (!hasRow(table)) [[unlikely]]
    throwNoBinding();
  Proxy& tables = host("table", table);
  const TableBindInfo* const info = tableBindInfo(table);
  if (info == nullptr) [[unlikely]] {
    tables.insertRow(rows[table].row);
    throwNoBinding();
  }
  // Made first, so that the handle can be given away.
  BaseRow fresh = info->freshRow();
  tables.insertRow(std::move(rows[table].row));
  rows[table].row.swap(fresh);
}

// The row by which a range ends: what the table's projection entry for the upper or lower end makes of `row`,
// or `row` itself when the program has none. A null row stays null.
TAVRO_EXPORT BaseRow prepDelRange(Context* context, len_t index, const BaseRow& row, bool upper);

}  // namespace Tavro::TvRT
