#include "runQueue.h"

#include "Tavro/database.h"

namespace Tavro {

Schedulable::~Schedulable() {
  if (queue_ != nullptr) queue_->unbind(*this);
}

void Schedulable::_considerRunnability() {
  if (queue_ != nullptr) queue_->consider(*this);
}

void RunQueue::enlist(Schedulable& object, Schedulable::Place place) noexcept {
  List& list = listOf(place);
  object.place_ = place;
  object.previous_ = list.last;
  object.next_ = nullptr;
  (list.last == nullptr ? list.first : list.last->next_) = &object;
  list.last = &object;
  ++list.size;
}

void RunQueue::unlist(Schedulable& object) noexcept {
  if (object.place_ == Schedulable::Place::none) return;
  List& list = listOf(object.place_);
  (object.previous_ == nullptr ? list.first : object.previous_->next_) = object.next_;
  (object.next_ == nullptr ? list.last : object.next_->previous_) = object.previous_;
  object.place_ = Schedulable::Place::none;
  --list.size;
}

void RunQueue::unbind(Schedulable& object) noexcept {
  unlist(object);
  object.queue_ = nullptr;
  if (running_ == &object) running_ = nullptr;
}

void RunQueue::consider(Schedulable& object) noexcept {
  // What runs now goes to the end of the line when it has ended.
  if (&object == running_ || object.place_ != Schedulable::Place::none || !object.runnable()) return;
  enlist(object, Schedulable::Place::runnable);
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

Schedulable& RunQueue::takeFirst() noexcept {
  Schedulable& object = *runnable_.first;
  runnable_.first = object.next_;
  (object.next_ == nullptr ? runnable_.last : object.next_->previous_) = nullptr;
  object.place_ = Schedulable::Place::none;
  --runnable_.size;
  return object;
}

Schedulable& RunQueue::takeRandom() noexcept {
  Schedulable* object = runnable_.first;
  for (auto skipped = static_cast<std::size_t>((*random_)() % runnable_.size); skipped > 0; --skipped)
    object = object->next_;
  unlist(*object);
  return *object;
}

bool RunQueue::step() {
  if (inStep_) return false;
  while (runnable_.first != nullptr) {
    Schedulable& object = random_ ? takeRandom() : takeFirst();
    // It may have been stopped since it was put there.
    if (!object.runnable()) continue;
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
    object.runOnce();
    return true;
  }
  return false;
}

SchedulerQueue::SchedulerQueue() : queue_(std::make_unique<RunQueue>()) {}
SchedulerQueue::~SchedulerQueue() = default;

void SchedulerQueue::seedIs(std::uint64_t seed) { queue_->seedIs(seed); }
bool SchedulerQueue::step() { return queue_->step(); }

void SchedulerQueue::runUntilIdle() {
  while (step()) {
  }
}

}  // namespace Tavro
