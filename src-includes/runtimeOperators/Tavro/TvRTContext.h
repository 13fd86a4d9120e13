#pragma once

#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Tavro/Kelpo.h"
#include "Tavro/TvRTIStream.h"
#include "Tavro/TvRTStack.h"
#include "Tavro/TvRTStringTable.h"
#include "Tavro/baseRow.h"
#include "Tavro/export.h"
#include "Tavro/tavroDb.h"
#include "Tavro/tvMetadata.h"

namespace Tavro::TvRT {

class Proxy;
class ValueIterBase;

// The binding of one row slot.
struct TAVRO_EXPORT TableBindInfo {
  TableBindInfo(TavroDB& database, len_t index, len_t len, len_t outIndex, const std::string& name,
                const std::string& alias, const std::string& sig);

  // "TableBindInfo[index: ..., outIndex: ..., ...]", in one line.
  std::string toString() const;
  // A zeroed row of the table.
  BaseRow freshRow() const { return BaseRow(len, static_cast<len_t>(rowType)); }

  len_t index;
  len_t len;  // length of the fixed part of the slot's rows
  len_t outIndex;
  std::string name;   // with its namespace
  std::string alias;  // the name by which the program knows the table
  std::string sig;
  unsigned int rowType;
};

// Nanoseconds of the clock CLOCK_MONOTONIC.
TAVRO_EXPORT long long getTime();

// One loaded operator, ready to run: stack, instruction stream, row slots, strings and run state. Filled by a
// Loader, then owned and driven by a Proxy or a RowOps, by one thread at a time.
class TAVRO_EXPORT Context {
 public:
  enum ContextState : int {
    Unloaded = 0,   // no program accepted yet
    Ready = 1,      // may be run at an entry
    Failed = 2,     // the last run ended in OpFailed
    Suspended = 3,  // the last run ended in OpSuspend; `pc` stands on the instruction to repeat
  };

  using TableBindInfos = std::vector<TableBindInfo*>;

  class __kelpoDebug : public Kelpo::DebugSupport {
   public:
    __kelpoDebug() : Kelpo::DebugSupport(getHandler()) {}
    static Kelpo::DebugHandler* getHandler();
  };

  // Keeps a reference to the database for life.
  explicit Context(TvPtr<TavroDB> database);
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  // Does not free the binding records (see deleteBindings).
  ~Context();

  // The host behind the row instructions; not owned.
  void setProxy(Proxy* proxy);
  // Puts the stack back to empty and `pc` to 0; a full clear forgets stream, entries and strings too.
  void clear(bool full = true);
  // Deletes the binding records. Called by the owner before it deletes the context.
  void deleteBindings();

  // ---- running

  // Runs from `pc` until `halt`, a failure or a suspension, and returns the state that the run ended in. What
  // a handler throws passes through; `pc`, stack and return stack then stand as they were at the throw, and
  // the state is unchanged. Throws TvOutOfRange for a result that no instruction has.
  ContextState execute();
  // Runs from a label. Throws TvTableFull unless the state is Ready. An unknown label ends the process.
  ContextState execute(len_t label);
  // Goes on after a suspension or failure. Throws TvTableFull when the state is Ready.
  ContextState resume();
  void halt() { running = false; }
  bool isRunning() const { return running; }
  // Sets `pc` to a named entry, or to 0 when the name is unknown. Ends the process when no label exists at
  // all.
  void toEntry(const std::string& name);
  // The label number of a name, or 0.
  len_t translateEntry(const std::string& name) const;
  // Makes a label of that name for the present end of the stream and returns its number.
  len_t setEntryPoint(const std::string& name);
  // Jumps to a label and remembers where to return. An unknown label ends the process.
  void call(len_t label);
  // Jumps back behind the last call, or halts when there is none. A bad offset ends the process.
  void returnOp();
  template <Trace trace = Trace::On>
  bool gotoOp(len_t label) {
    return stream.gotoOp<trace>(label);
  }
  void stepPC(len_t n) { stream.stepPC(n); }
  len_t append(len_t len, const unsigned char* bytes) { return stream.append(len, bytes); }
  len_t maxLoc() const { return stream.maxLoc(); }

  ContextState runState() const { return state; }
  IStream& istream() { return stream; }
  const IStream& istream() const { return stream; }
  // The name of a label, "" for none.
  std::string entryName(len_t label) const;
  // The label at which the last run from a label began; 0 before the first.
  len_t runEntry() const { return lastEntry; }

  // ---- stack

  Stack& stackR() { return stack; }
  // Bytes on the stack.
  unsigned int depth() const { return stack.depth(); }
  bool isEmpty() const { return stack.isEmpty(); }

  // ---- strings

  unsigned int addString(const std::string& text) { return stringTable.add(text); }
  std::string fetchString(unsigned int oid) const { return stringTable.fetch(oid); }
  unsigned int getStringOID(const std::string& text) const { return stringTable.getOID(text); }

  // ---- binding, while a program is loaded

  // Makes row slot `index` for a table. A slot that exists keeps its binding.
  void bindTable(len_t index, len_t len, len_t outIndex, const std::string& name, const std::string& alias,
                 const std::string& sig);
  // Takes the parameter row's length and its columns: "{'name':offset:'type',...}", without blanks, and
  // "[]" behind the name of an array.
  void bindParameters(len_t len, const std::string& text);
  // Constants have no row of their own.
  void bindConstants(len_t, const std::string&) {}
  void bindTemporaries(len_t len, const std::string&);
  // Reads "isOneShot=..., isFilter=..."; reports what it does not know on standard error.
  void setProperties(const std::string& text);
  // Makes room for value iterators 0 to `count`.
  void setIterCount(len_t count);
  // Adds the five pseudo rows behind the tables.
  void endEncountered();

  // Stores the text form of a value in the parameter row. A name that the program does not declare is
  // ignored.
  void setParameter(const std::string& name, const std::string& value);

  // ---- row slots

  // Throws std::out_of_range for a slot that does not exist, as all of these do.
  BaseRow& getRow(len_t index) {
    const auto slot = rows.begin() + index;
    if (slot >= rows.end()) [[unlikely]]
      throwNoRow();
    return slot->row;
  }
  bool hasRow(len_t index) const { return rows.begin() + index < rows.end(); }
  // The row of a slot with a binding, if it is not null and nobody shares its buffer; or null.
  BaseRow* ownRow(len_t index) {
    const auto slot = rows.begin() + index;
    const bool isOwn =
        slot < rows.end() && slot->fixedLength != 0 && !slot->row.isNull() && slot->row.useCount() == 1;
    return isOwn ? &slot->row : nullptr;
  }
  // The slot shares the row's buffer from now on.
  void replaceRow(len_t index, const BaseRow& row) { slotToReplace(index) = row; }
  void replaceRow(len_t index, BaseRow&& row) { slotToReplace(index) = std::move(row); }
  void swapRow(len_t index, BaseRow& row);
  // The slot gets a fresh zeroed row of its table.
  void clearRow(len_t index);
  // Length of the fixed part of the slot's rows. Throws std::out_of_range for a slot without a binding.
  len_t fixedLength(len_t index) const {
    const auto slot = rows.begin() + index;
    if (slot >= rows.end() || slot->fixedLength == 0) [[unlikely]]
      throwNoBinding();
    return slot->fixedLength;
  }

  BaseRow outputRow() { return getRow(0); }
  BaseRow keyRow() { return getRow(keyRowIdx); }
  const BaseRow& parameterRow() const { return paramRow; }
  const BaseRow& temporaryRow() const { return tempRow; }
  len_t keyRowIndex() const { return keyRowIdx; }
  len_t deletedRowIndex() const { return deletedRowIdx; }
  len_t paramRowIndex() const { return paramRowIdx; }
  len_t constRowIndex() const { return constRowIdx; }
  len_t tempRowIndex() const { return tempRowIdx; }
  // Keeps the row that a constant points into for as long as the context lives.
  void keepConstant(const BaseRow& row) { constRows.push_back(row); }

  // The binding record of a slot; null for none.
  TableBindInfo* tableBindInfo(len_t index) const {
    const auto info = tbis.begin() + index;
    return info < tbis.end() ? *info : nullptr;
  }
  // The output table's record; null when the program binds no table.
  TableBindInfo* outTable() const { return tableBindInfo(0); }
  // The records of output and inputs, or of the inputs alone, without the pseudo rows. Records may be null.
  TableBindInfos::const_iterator tbisBegin() const { return tbis.begin(); }
  TableBindInfos::const_iterator tbisEnd() const { return tbis.begin() + static_cast<long>(tableCount()); }
  TableBindInfos::const_iterator inputTablesBegin() const {
    return tbis.begin() + (tableCount() == 0 ? 0 : 1);
  }
  TableBindInfos::const_iterator inputTablesEnd() const { return tbisEnd(); }
  // All records, pseudo rows included.
  std::size_t tbisSize() const { return tbis.size(); }

  const std::unordered_map<std::string, tvMetadata::tvColumn>& parameterColumns() const {
    return paramColumns;
  }

  // ---- rows of tables, through the host (what is inline is in TvRTProxy.h). Throw std::out_of_range without
  // a host or for a slot without a table.

  // Looks up the key row and puts the row found, or a null row, into the slot. True when one was found.
  inline bool fetchRow(len_t table, len_t index);
  void lower_bound(len_t table, len_t index);
  void begin(len_t table, len_t index);
  // Puts the cursor's row, or a null row behind the last, into the slot. True when there was one.
  inline bool nextRow(len_t table);
  // Emit the slot's row to the output table, or delete it there, then clear the slot.
  inline void insertRow(len_t table);
  void deleteRow(len_t table, len_t index);

  // ---- watch-counter entries: the label number of a table's handler, or 0 when the program has none

  // "t", the table's number, then the suffix.
  static std::string genWCName(len_t table, const std::string& suffix);
  len_t onRowWC(len_t table) const {
    // Building the name and looking it up costs more than most reactions.
    const bool isKnown = table < rowEntries.size() && rowEntries[table] >= 0;
    // With the trace on, every lookup shows.
    if (!isKnown || Kelpo::DebugHandler::anyLevelOn()) [[unlikely]]
      return findRowEntry(table);
    return static_cast<len_t>(rowEntries[table]);
  }
  len_t onDelWC(len_t table) const;
  len_t onReadyWC(len_t table) const;
  len_t projRowWC(len_t table, bool upper) const;

  // ---- value iterators; the context owns what its slots hold

  // Throws std::runtime_error for a slot that does not exist or is empty.
  ValueIterBase* getValueAryIter(len_t index) const;
  // Deletes what the slot held. Throws std::runtime_error for a slot that does not exist; the iterator then
  // still belongs to the caller.
  void setValueAryIter(len_t index, ValueIterBase* iterator);
  // The failure of a slot that holds no iterator, or none of the expected element type.
  [[noreturn]] static void throwNoIterator(len_t index);

  // ---- texts and figures of the program

  void srcIs(const std::string& text) { srcText = text; }
  void queryNameIs(const std::string& text) { queryNameText = text; }
  void queryHashIs(const std::string& text) { queryHashText = text; }
  const std::string& src() const { return srcText; }
  const std::string& queryName() const { return queryNameText; }
  const std::string& queryHash() const { return queryHashText; }
  bool filter() const { return isFilter; }
  bool oneShot() const { return isOneShot; }
  // True when null values come first in orders, as they do.
  bool nullsComeFirst() const { return nullsFirst; }
  long long getInstCount() const { return instCount; }
  long long getTimeDuration() const { return timeDuration; }

 private:
  friend class Loader;

  std::size_t tableCount() const { return tbis.size() < pseudoRowCount ? 0 : tbis.size() - pseudoRowCount; }
  len_t constructPseudoBindTableInfo(const std::string& name);
  // Takes the run to a label.
  template <Trace trace>
  void enter(len_t label);
  [[gnu::cold]] void enterTraced(len_t label);
  [[noreturn, gnu::cold]] void throwNotReady() const;
  PlainOutcome executeTraced();
  ContextState endRun(PlainOutcome outcome);
  len_t findRowEntry(len_t table) const;
  BaseRow& slotToReplace(len_t index) {
    const auto slot = rows.begin() + index;
    if (slot >= rows.end()) [[unlikely]]
      throwNoSlot();
    return slot->row;
  }
  // The host, or the failure of a row instruction that has none to go to. `what` names the kind of row.
  inline Proxy& host(const char* what, len_t table) const;
  [[noreturn, gnu::cold]] static void throwNoHost(const char* what, len_t table);
  // A row slot with `len` of its binding record, 0 for none: every store into a row asks for it.
  struct RowSlot {
    BaseRow row;
    len_t fixedLength = 0;
  };

  [[noreturn, gnu::cold]] static void throwNoRow();
  [[noreturn, gnu::cold]] static void throwNoBinding();
  [[noreturn, gnu::cold]] static void throwNoSlot();

  static constexpr std::size_t pseudoRowCount = 5;

  Stack stack;
  ContextState state = Unloaded;
  std::vector<RowSlot> rows;
  BaseRow paramRow;
  len_t paramRowLen = 0;
  BaseRow constRow;
  BaseRow tempRow;
  len_t tempRowLen = 0;
  std::unordered_map<std::string, tvMetadata::tvColumn> paramColumns;
  len_t maxRowLen = 0;
  len_t keyRowIdx = 0;
  len_t deletedRowIdx = 0;
  len_t paramRowIdx = 0;
  len_t constRowIdx = 0;
  len_t tempRowIdx = 0;
  TableBindInfos tbis;
  // One entry more than the slots seen from outside: the bound of the accessors lets the count through.
  std::vector<ValueIterBase*> valueIters;
  std::vector<BaseRow> constRows;
  IStream stream;
  std::unordered_map<std::string, int> entries;
  std::unordered_map<int, std::string> entryNames;
  TvRTStringTable stringTable;
  Proxy* proxy = nullptr;
  std::string srcText;
  std::string queryNameText;
  std::string queryHashText;
  bool isFilter = false;
  bool isOneShot = false;
  bool running = false;
  long long instCount = 0;
  long long timeDuration = 0;
  TvPtr<TavroDB> database;
  bool nullsFirst = true;
  std::deque<len_t> returnStack;
  __kelpoDebug debug;
  len_t lastEntry = 0;
  // What onRowWC found for each table, -1 for not looked up yet. Emptied whenever a name gets another label.
  mutable std::vector<int> rowEntries;
};

// Releases a context together with its binding records, as every owner of one has to.
struct DeleteContext {
  void operator()(Context* context) const {
    context->deleteBindings();
    delete context;
  }
};
using OwnedContext = std::unique_ptr<Context, DeleteContext>;

}  // namespace Tavro::TvRT
