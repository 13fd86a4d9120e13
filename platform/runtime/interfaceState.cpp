#include "interfaceState.h"

#include <stdexcept>
#include <utility>

#include "Tavro/database.h"
#include "memoryTable.h"
#include "runQueue.h"

namespace Tavro {

InterfaceState::InterfaceState(TvTableInterface& owner, unsigned char mode, Handlers handlers)
    : owner_(&owner), name_(owner.name()), mode_(mode), handlers_(std::move(handlers)) {
  if (mode != TvTableInterface::readMode && mode != TvTableInterface::writeMode)
    throw std::invalid_argument("interface " + name_ + ": mode " + std::to_string(mode) +
                                " neither reads nor writes");
}

void InterfaceState::bind(MemoryTable& table, RunQueue& queue, Client* client) {
  if (table_ != nullptr) throw std::logic_error("interface " + name_ + " is bound already");
  if (client != nullptr) client->interfaces_.reserve(client->interfaces_.size() + 1);
  table.connect(*this);
  if (client != nullptr) client->interfaces_.push_back(this);
  client_ = client;
  table_ = &table;
  queue_ = &queue;
  phase_ = Phase::bound;
  readyDue_ = handlers_.ready != nullptr;
  queue.bind(*owner_);
  queue.consider(*owner_);
}

void InterfaceState::disconnect() noexcept {
  if (table_ == nullptr) return;
  MemoryTable& table = *std::exchange(table_, nullptr);
  backlog_.clear();
  readyDue_ = blocked_ = false;
  noticesDue_ = 0;
  queue_->unbind(*owner_);
  if (client_ != nullptr) std::erase(client_->interfaces_, this);
  client_ = nullptr;
  table.disconnect(*this);
}

void InterfaceState::consider() noexcept { queue_->consider(*owner_); }

MemoryTable& InterfaceState::table() const {
  if (table_ == nullptr) throw std::logic_error("interface " + name_ + " is not bound to a table");
  return *table_;
}

MemoryTable& InterfaceState::tableToWrite() const {
  if (isReader()) throw std::logic_error("interface " + name_ + " reads its table and cannot write to it");
  return table();
}

void InterfaceState::activate(bool reading) {
  MemoryTable& read = table();
  const bool isFirst = phase_ == Phase::bound;
  phase_ = reading ? Phase::keeping : Phase::active;
  if (!reading) queue_->resume(*owner_);
  if (isFirst) read.considerWriters();
}

void InterfaceState::deactivate() {
  table();
  if (phase_ == Phase::active) phase_ = Phase::keeping;
}

void InterfaceState::stage(Change::Kind kind, const BaseRow& row) {
  if (phase_ != Phase::bound && hasHandler(kind)) backlog_.stage(kind, row);
}

void InterfaceState::settle() noexcept {
  backlog_.settle();
  queue_->consider(*owner_);
}

void InterfaceState::blockedIs(bool blocked) noexcept {
  if (blocked_ == blocked) return;
  blocked_ = blocked;
  if (handlers_.block) ++noticesDue_;
  queue_->consider(*owner_);
}

bool InterfaceState::isToComeFor(const Client* writer) const {
  return phase_ == Phase::bound && handlers_.row != nullptr && client_ != nullptr && client_ != writer;
}

bool InterfaceState::runnable() const {
  if (table_ == nullptr) return false;
  if (!isReader()) return noticesDue_ > 0 || (readyDue_ && !table_->isReaderToComeFor(client_));
  if (!owner_->clientReady() || (client_ != nullptr && client_->isHeld())) return false;
  if (readyDue_) return handlers_.row != nullptr || !table_->isBeingFilled();
  return phase_ == Phase::active && !backlog_.isEmpty();
}

void InterfaceState::deliver(const std::shared_ptr<InterfaceState>& self) {
  const std::shared_ptr<InterfaceState> alive = self;
  if (alive->readyDue_)
    alive->deliverReady();
  else if (alive->isReader())
    alive->deliverChange();
  else
    alive->deliverBlocking();
}

template <typename Tell, typename Done>
void InterfaceState::attempt(const Tell& tell, const Done& done) {
  try {
    tell();
  } catch (const TvTableFull&) {
    if (table_ != nullptr) queue_->park(*owner_);
    return;
  } catch (...) {
    done();
    if (client_ == nullptr) throw;
    client_->fail(std::current_exception());
    return;
  }
  done();
}

void InterfaceState::deliverReady() {
  attempt([this] { handlers_.ready(); }, [this] { readyDue_ = false; });
}

void InterfaceState::deliverBlocking() {
  const bool blocked = noticesDue_ % 2 == 1 ? blocked_ : !blocked_;
  RunQueue& queue = *queue_;
  attempt([&] { handlers_.block(blocked); },
          [&] {
            if (noticesDue_ > 0) --noticesDue_;
            if (!blocked) queue.resumeAll();
          });
  if (client_ != nullptr && !isHeld()) client_->considerReaders();
}

void InterfaceState::deliverChange() {
  const Change change = backlog_.front();
  attempt([&] { tell(change); },
          [this] {
            // Disconnected by its own handler.
            if (backlog_.isEmpty()) return;
            backlog_.popFront();
            table_->considerRoom();
          });
}

bool InterfaceState::hasHandler(Change::Kind kind) const {
  switch (kind) {
    case Change::Kind::inserted:
      return handlers_.row != nullptr;
    case Change::Kind::deleted:
      return handlers_.del != nullptr;
    default:
      return handlers_.end != nullptr;
  }
}

void InterfaceState::tell(const Change& change) const {
  switch (change.kind) {
    case Change::Kind::inserted:
      return handlers_.row(change.row);
    case Change::Kind::deleted:
      return handlers_.del(change.row);
    default:
      return handlers_.end();
  }
}

}  // namespace Tavro
