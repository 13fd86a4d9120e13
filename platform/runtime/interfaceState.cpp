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
  wantedIs(Change::Kind::inserted, handlers_.row != nullptr);
  wantedIs(Change::Kind::deleted, handlers_.del != nullptr);
}

void InterfaceState::wantedIs(Change::Kind kind, bool isWanted) {
  wanted_ = static_cast<unsigned char>(isWanted ? wanted_ | bitOf(kind) : wanted_ & ~bitOf(kind));
}

void InterfaceState::endHandlerIs(TvTableInterface::ReadyHandler end) {
  handlers_.end = std::move(end);
  wantedIs(Change::Kind::ended, handlers_.end != nullptr);
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
  consider();
}

void InterfaceState::disconnect() noexcept {
  if (table_ == nullptr) return;
  MemoryTable& table = *std::exchange(table_, nullptr);
  backlog_.clear();
  readyDue_ = blocked_ = false;
  noticesDue_ = 0;
  queue_->unbind(*owner_);
  Client* const client = std::exchange(client_, nullptr);
  if (client != nullptr) std::erase(client->interfaces_, this);
  table.disconnect(*this);
  // A writer that was blocked has held them.
  if (client != nullptr) client->considerReaders();
}

void InterfaceState::throwNotBound() const {
  throw std::logic_error("interface " + name_ + " is not bound to a table");
}

void InterfaceState::throwNoWriter() const {
  throw std::logic_error("interface " + name_ + " reads its table and cannot write to it");
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

void InterfaceState::blockedIs(bool blocked) noexcept {
  if (blocked_ == blocked) return;
  blocked_ = blocked;
  if (handlers_.block)
    ++noticesDue_;
  else if (!blocked && client_ != nullptr)
    client_->considerReaders();
  consider();
}

bool InterfaceState::isToComeFor(const Client* writer) const {
  return phase_ == Phase::bound && handlers_.row != nullptr && client_ != nullptr && client_ != writer;
}

// What is mostly false comes first: it is asked several times for every change.
inline bool InterfaceState::hasChange() const {
  return !backlog_.isEmpty() && phase_ == Phase::active && owner_->clientReady() &&
         (client_ == nullptr || !client_->isHeld());
}

// What is told beside changes.
bool InterfaceState::hasNotice() const {
  if (table_ == nullptr) return false;
  if (!isReader()) return noticesDue_ > 0 || (readyDue_ && !table_->isReaderToComeFor(client_));
  if (!owner_->clientReady() || (client_ != nullptr && client_->isHeld())) return false;
  return handlers_.row != nullptr || !table_->isBeingFilled();
}

bool InterfaceState::runnable() const { return waitsForChanges() ? hasChange() : hasNotice(); }

void InterfaceState::consider() noexcept {
  if (runnable()) queue_->enter(*owner_);
}

void InterfaceState::add(Change::Kind kind, const BaseRow& row) noexcept {
  if (phase_ != Phase::bound && (wanted_ & bitOf(kind)) != 0) backlog_.add(kind, row);
  consider();
}

void InterfaceState::leaveOwner(std::unique_ptr<InterfaceState> self) noexcept {
  self->disconnect();
  if (self->isDelivering_) self.release()->isOwnerless_ = true;
}

class InterfaceState::Delivery {
 public:
  explicit Delivery(InterfaceState& state) : of_(state) { of_.isDelivering_ = true; }
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;
  ~Delivery() {
    of_.isDelivering_ = false;
    if (of_.isOwnerless_) [[unlikely]]
      delete &of_;
  }

 private:
  InterfaceState& of_;
};

inline void InterfaceState::tell(const Change& change) const {
  switch (change.kind) {
    case Change::Kind::inserted:
      return handlers_.row(change.row);
    case Change::Kind::deleted:
      return handlers_.del(change.row);
    default:
      return handlers_.end();
  }
}

bool InterfaceState::deliver() {
  if (!waitsForChanges()) [[unlikely]]
    return deliverNotice();
  if (!hasChange()) return false;
  const Delivery delivery(*this);
  Change change = backlog_.lendFirst();
  attempt([&] { tell(change); },
          [&] {
            // Unless its own handler has disconnected it.
            if (backlog_.dropLent(change)) table_->considerRoom();
          },
          [&] { backlog_.returnLent(std::move(change)); });
  return true;
}

bool InterfaceState::deliverNotice() {
  if (!hasNotice()) return false;
  const Delivery delivery(*this);
  if (readyDue_)
    deliverReady();
  else
    deliverBlocking();
  return true;
}

template <typename Tell, typename Done, typename Refused>
inline void InterfaceState::attempt(const Tell& tell, const Done& done, const Refused& refused) {
  try {
    tell();
  } catch (const TvTableFull&) {
    refused();
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
  attempt([this] { handlers_.ready(); }, [this] { readyDue_ = false; }, [] {});
}

void InterfaceState::deliverBlocking() {
  const bool blocked = noticesDue_ % 2 == 1 ? blocked_ : !blocked_;
  RunQueue& queue = *queue_;
  attempt([&] { handlers_.block(blocked); },
          [&] {
            if (noticesDue_ > 0) --noticesDue_;
            if (!blocked) queue.resumeAll();
          },
          [] {});
  if (client_ != nullptr && !isHeld()) client_->considerReaders();
}

}  // namespace Tavro
