#include "runQueue.h"

#include "Tavro/database.h"

namespace Tavro {

Schedulable::~Schedulable() {
  if (queue_ != nullptr) queue_->unbind(*this);
}

void Schedulable::_considerRunnability() {
  if (queue_ != nullptr) queue_->consider(*this);
}

void RunQueue::unlist(Schedulable& object) noexcept {
  if (object.place_ == Schedulable::Place::none) return;
  List& list = listOf(object.place_);
  (object.previous_ == nullptr ? list.first : object.previous_->next_) = object.next_;
  (object.next_ == nullptr ? list.last : object.next_->previous_) = object.previous_;
  object.place_ = Schedulable::Place::none;
}

void RunQueue::unbind(Schedulable& object) noexcept {
  unlist(object);
  object.queue_ = nullptr;
  if (running_ == &object) running_ = nullptr;
}

void RunQueue::park(Schedulable& object) noexcept {
  unlist(object);
  enlist(object, Schedulable::Place::parked);
}

void RunQueue::resume(Schedulable& object) noexcept {
  if (object.place_ == Schedulable::Place::parked) unlist(object);
  consider(object);
}

void RunQueue::resumeAll() noexcept {
  while (parked_.first != nullptr) resume(*parked_.first);
}

inline Schedulable& RunQueue::takeFirst() noexcept {
  Schedulable& object = *runnable_.first;
  runnable_.first = object.next_;
  (object.next_ == nullptr ? runnable_.last : object.next_->previous_) = nullptr;
  object.place_ = Schedulable::Place::none;
  return object;
}

Schedulable& RunQueue::takeRandom() noexcept {
  std::uint64_t waiting = 0;
  for (const Schedulable* object = runnable_.first; object != nullptr; object = object->next_) ++waiting;
  Schedulable* object = runnable_.first;
  for (std::uint64_t skipped = (*random_)() % waiting; skipped > 0; --skipped) object = object->next_;
  unlist(*object);
  return *object;
}

inline bool RunQueue::runNext() {
  while (runnable_.first != nullptr) {
    Schedulable& object = random_ ? takeRandom() : takeFirst();
    struct Step {
      RunQueue& queue;
      explicit Step(RunQueue& q, Schedulable& o) : queue(q) {
        queue.inStep_ = true;
        queue.running_ = &o;
      }
      Step(const Step&) = delete;
      Step& operator=(const Step&) = delete;
      ~Step() {
        queue.inStep_ = false;
        Schedulable* const ended = queue.running_;
        queue.running_ = nullptr;
        if (ended != nullptr) queue.consider(*ended);
      }
    };
    const Step step(*this, object);
    // It may have been stopped since it was put there.
    if (object.runOnce()) return true;
  }
  return false;
}

bool RunQueue::step() { return !inStep_ && runNext(); }

void RunQueue::runUntilIdle() {
  if (inStep_) return;
  while (runNext()) {
  }
}

SchedulerQueue::SchedulerQueue() : queue_(std::make_unique<RunQueue>()) {}
SchedulerQueue::~SchedulerQueue() = default;

void SchedulerQueue::seedIs(std::uint64_t seed) { queue_->seedIs(seed); }
bool SchedulerQueue::step() { return queue_->step(); }
void SchedulerQueue::runUntilIdle() { queue_->runUntilIdle(); }

}  // namespace Tavro
