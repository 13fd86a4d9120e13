#pragma once

#include <memory>
#include <string>

#include "Tavro/database.h"
#include "backlog.h"
#include "runQueue.h"

namespace Tavro {

class MemoryTable;

// The inside of a table interface: what it is bound to, what it is still to be told, and whether it can be.
class InterfaceState {
 public:
  struct Handlers {
    TvTableInterface::ReadyHandler ready;
    TvTableInterface::RowHandler row;
    TvTableInterface::RowHandler del;
    TvTableInterface::BlockHandler block;
    TvTableInterface::ReadyHandler end;
  };

  InterfaceState(TvTableInterface& owner, unsigned char mode, Handlers handlers);
  InterfaceState(const InterfaceState&) = delete;
  InterfaceState& operator=(const InterfaceState&) = delete;

  // The interface goes. Its state goes with it, or when the delivery under way has ended.
  static void leaveOwner(std::unique_ptr<InterfaceState> self) noexcept;

  // `client` may be null.
  void bind(MemoryTable& table, RunQueue& queue, Client* client);
  // Leaves table and scheduler; nothing is told any more. No effect when not bound.
  void disconnect() noexcept;
  void leaveClient() noexcept {
    client_ = nullptr;
    consider();
  }
  void consider() noexcept;

  bool isReader() const { return mode_ == TvTableInterface::readMode; }
  // Throws std::logic_error when not bound.
  MemoryTable& table() const {
    if (table_ == nullptr) [[unlikely]]
      throwNotBound();
    return *table_;
  }
  MemoryTable& tableToWrite() const {
    if (isReader()) [[unlikely]]
      throwNoWriter();
    return table();
  }
  void endHandlerIs(TvTableInterface::ReadyHandler end);

  void activate(bool reading);
  void deactivate();

  // A reader's changes: its table reserves places for them, changes, and adds them.
  void reserve(std::size_t changes) {
    if (phase_ != Phase::bound) backlog_.reserve(changes);
  }
  void add(Change::Kind kind, const BaseRow& row) noexcept;
  // Insertions that a reader has not been told of.
  std::size_t undelivered() const { return backlog_.insertions(); }

  // A writer's state of blocking, as its table changes it.
  void blockedIs(bool blocked) noexcept;
  bool isBlocked() const { return blocked_; }
  // True from a refused row until the writer is told that it can go on.
  bool isHeld() const { return blocked_ || noticesDue_ > 0; }
  bool isOfClientOf(const InterfaceState& other) const {
    return client_ != nullptr && client_ == other.client_;
  }
  // True while a reader that belongs to another client than `writer` has not asked for changes yet.
  bool isToComeFor(const Client* writer) const;
  // Whether a writer has filled its table.
  bool hasEnded() const { return hasEnded_; }
  void endIs() noexcept { hasEnded_ = true; }

  bool runnable() const;
  // Tells what comes next; false when there is nothing that can be told. The handlers stay alive when one of
  // them destroys the interface.
  bool deliver();

 private:
  // A reader's road: it keeps nothing until its client asks for it, then keeps changes, then is told of them.
  enum class Phase : unsigned char { bound, keeping, active };

  // A reader that has been told that it is ready waits for changes alone.
  bool waitsForChanges() const { return isReader() && !readyDue_; }
  bool hasChange() const;
  bool hasNotice() const;

  [[noreturn]] void throwNotBound() const;
  [[noreturn]] void throwNoWriter() const;

  // Runs `tell`, then `done`, or `refused` when the client cannot be told now.
  template <typename Tell, typename Done, typename Refused>
  void attempt(const Tell& tell, const Done& done, const Refused& refused);
  class Delivery;
  bool deliverNotice();
  void deliverReady();
  void deliverBlocking();
  static unsigned bitOf(Change::Kind kind) { return 1U << static_cast<unsigned>(kind); }
  void wantedIs(Change::Kind kind, bool isWanted);
  void tell(const Change& change) const;

  // Not to be followed once `table_` is null: the interface may be gone.
  TvTableInterface* owner_;
  std::string name_;
  unsigned char mode_;
  Handlers handlers_;
  // The kinds of changes that there are handlers for, a bit each.
  unsigned char wanted_ = 0;
  MemoryTable* table_ = nullptr;
  RunQueue* queue_ = nullptr;
  Client* client_ = nullptr;

  bool readyDue_ = false;
  Phase phase_ = Phase::bound;
  Backlog backlog_;

  // What a writer has been told or is about to be: since notices alternate, the last and their number say
  // all.
  bool blocked_ = false;
  unsigned noticesDue_ = 0;
  bool hasEnded_ = false;

  bool isDelivering_ = false;
  bool isOwnerless_ = false;
};

}  // namespace Tavro
