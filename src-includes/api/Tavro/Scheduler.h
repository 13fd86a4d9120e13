#pragma once

#include <string>
#include <utility>

#include "Tavro/Kelpo.h"
#include "Tavro/export.h"

namespace Tavro {

class RunQueue;

// What the platform's scheduler runs, once the object has been bound to a database: the scheduler asks
// `runnable` whenever something has changed, and calls `runOnce` in its turn. Destroying the object takes it
// out of the scheduler, even while its own `runOnce` is under way.
class TAVRO_EXPORT Schedulable {
 public:
  Schedulable(std::string name, Kelpo::DebugHandler* handler) : name_(std::move(name)), handler_(handler) {}
  Schedulable(const Schedulable&) = delete;
  Schedulable& operator=(const Schedulable&) = delete;
  virtual ~Schedulable();

  // True while there is something to do for this object and its client can take it. Called by the scheduler.
  virtual bool runnable() const = 0;
  // Does one unit of that work; false when there is none any more. Called by the scheduler, from its loop
  // only.
  virtual bool runOnce() = 0;

  // The client says whether it can be told of things. A change calls `clientReadyChanged`, and readiness puts
  // the object before the scheduler.
  virtual void clientReadyIs(bool ready) {
    Kelpo::trace(handler_, 8, "Scheduler", __LINE__, "clientReadyIs", [&](std::ostream& text) {
      text << "virtual void Tavro::Schedulable::clientReadyIs(bool)"
           << " " << name_ << " ready: " << ready;
    });
    if (clientReady_ == ready) return;
    clientReady_ = ready;
    clientReadyChanged();
    if (ready) _considerRunnability();
  }

  const std::string& name() const { return name_; }
  bool clientReady() const { return clientReady_; }

 protected:
  // Called when the client's readiness has changed.
  virtual void clientReadyChanged() {}

  // Puts the object into the scheduler's queue if it is runnable and not there yet.
  void _considerRunnability();

 private:
  friend class RunQueue;

  std::string name_;
  Kelpo::DebugHandler* handler_;
  bool clientReady_ = false;

  // The scheduler of the database that the object is bound to, and the place in one of its lists.
  RunQueue* queue_ = nullptr;
  enum class Place : unsigned char { none, runnable, parked } place_ = Place::none;
  Schedulable* next_ = nullptr;
  Schedulable* previous_ = nullptr;
};

}  // namespace Tavro
