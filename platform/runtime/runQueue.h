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
  void consider(Schedulable& object) noexcept;
  // The object has refused what it was told: it is not considered until it is resumed.
  void park(Schedulable& object) noexcept;
  void resume(Schedulable& object) noexcept;
  void resumeAll() noexcept;

  // From now on a random one of the line runs next, always the same for the same number, instead of the
  // first.
  void seedIs(std::uint64_t seed) { random_.emplace(seed); }

  // Runs the next of the line. False when there is none, and from inside a unit of work.
  bool step();

 private:
  struct List {
    Schedulable* first = nullptr;
    Schedulable* last = nullptr;
    std::size_t size = 0;
  };

  List& listOf(Schedulable::Place place) {
    return place == Schedulable::Place::runnable ? runnable_ : parked_;
  }
  void enlist(Schedulable& object, Schedulable::Place place) noexcept;
  void unlist(Schedulable& object) noexcept;
  // Takes one out of the line, which is not empty.
  Schedulable& takeFirst() noexcept;
  Schedulable& takeRandom() noexcept;

  List runnable_;
  List parked_;
  bool inStep_ = false;
  // What runs now; null when it has been destroyed or unbound meanwhile.
  Schedulable* running_ = nullptr;
  std::optional<std::mt19937_64> random_;
};

}  // namespace Tavro
