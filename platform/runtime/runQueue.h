#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>

#include "Tavro/Scheduler.h"

namespace Tavro {

// The inside of a scheduler: what is bound to it stands in the line of the runnable, or is parked until a
// writer has been unblocked, or waits for something to happen. Objects take themselves out when they go.
class RunQueue {
 public:
  RunQueue() = default;
  RunQueue(const RunQueue&) = delete;
  RunQueue& operator=(const RunQueue&) = delete;
  // Nothing may be bound any more.
  ~RunQueue() = default;

  void bind(Schedulable& object) noexcept { object.queue_ = this; }
  // Takes the object out for good.
  void unbind(Schedulable& object) noexcept;

  // Puts the object at the end of the line, if it is runnable, not there yet and not parked.
  void consider(Schedulable& object) noexcept {
    if (object.runnable()) enter(object);
  }
  // The same for an object that is known to be runnable.
  void enter(Schedulable& object) noexcept {
    // What runs now goes to the end of the line when it has ended.
    if (&object != running_ && object.place_ == Schedulable::Place::none)
      enlist(object, Schedulable::Place::runnable);
  }
  // The object has refused what it was told: it is not considered until it is resumed.
  void park(Schedulable& object) noexcept;
  void resume(Schedulable& object) noexcept;
  void resumeAll() noexcept;

  // From now on a random one of the line runs next, always the same for the same number, instead of the
  // first.
  void seedIs(std::uint64_t seed) { random_.emplace(seed); }

  // Runs the next of the line. False when there is none, and from inside a unit of work.
  bool step();
  void runUntilIdle();

 private:
  struct List {
    Schedulable* first = nullptr;
    Schedulable* last = nullptr;
  };

  List& listOf(Schedulable::Place place) {
    return place == Schedulable::Place::runnable ? runnable_ : parked_;
  }
  void enlist(Schedulable& object, Schedulable::Place place) noexcept {
    List& list = listOf(place);
    object.place_ = place;
    object.previous_ = list.last;
    object.next_ = nullptr;
    (list.last == nullptr ? list.first : list.last->next_) = &object;
    list.last = &object;
  }
  void unlist(Schedulable& object) noexcept;
  // Takes one out of the line, which is not empty.
  Schedulable& takeFirst() noexcept;
  Schedulable& takeRandom() noexcept;
  // Runs what is the next of the line, if there is one. Not from inside a unit of work.
  bool runNext();

  List runnable_;
  List parked_;
  bool inStep_ = false;
  // What runs now; null when it has been destroyed or unbound meanwhile.
  Schedulable* running_ = nullptr;
  std::optional<std::mt19937_64> random_;
};

}  // namespace Tavro
