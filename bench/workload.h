#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// What is measured, whatever measures it: a workload is done by several contestants, ours and its peers,
// whose answers must be equal.
namespace Tavro::Bench {

// What a run has put out.
struct Answer {
  std::uint64_t count = 0;
  std::uint64_t checksum = 0;

  bool operator==(const Answer&) const = default;

  // Takes up one output row. The order of the rows does not matter.
  void add(std::uint64_t id, double value);
};

// What one run has come to.
struct Result {
  double nanoseconds = 0;
  Answer answer;
};

struct Scale {
  std::size_t items;
  std::uint32_t seed;
};

// One way of doing a workload's work. The constructor sets up what the work needs.
class Contestant {
 public:
  Contestant() = default;
  Contestant(const Contestant&) = delete;
  Contestant& operator=(const Contestant&) = delete;
  virtual ~Contestant() = default;

  // The timed part. Called once.
  virtual void run() = 0;
  // What the run has put out.
  virtual Answer answer() = 0;
};

struct Entrant {
  const char* name;
  // The ratio of our time to this one's; for ours the workload.
  const char* ratio;
  std::unique_ptr<Contestant> (*make)(const Scale& scale);
};

template <typename C>
std::unique_ptr<Contestant> make(const Scale& scale) {
  return std::make_unique<C>(scale);
}

struct Workload {
  const char* name;
  // What a figure is given for, and how many of these there are to an item.
  const char* event;
  std::size_t eventsPerItem;
  Scale full;
  Scale quick;
  // Bytes that a run and what it sets up take of the heap at most.
  std::size_t heapPerItem;
  // Ours first.
  std::vector<Entrant> entrants;

  const Scale& scale(bool isQuick) const { return isQuick ? quick : full; }
  // Nanoseconds per event for a run of that scale.
  double perEvent(double nanoseconds, const Scale& scale) const {
    return nanoseconds / static_cast<double>(scale.items * eventsPerItem);
  }
};

const std::vector<Workload>& workloads();

// Runs contestants of one workload, at one scale, each in a process of its own: database and heap are as if
// there had been no other.
class Referee {
 public:
  Referee(const Workload& workload, bool isQuick);

  // Nanoseconds of processor time that a fresh contestant's run takes: all contestants compute and wait for
  // nothing, so this is their time on a machine that does nothing else. Throws std::runtime_error when the
  // run fails and when its answer differs from the ones before it.
  double time(const Entrant& entrant);

  const Scale& scale() const { return scale_; }

 private:
  void check(const Entrant& entrant, const Answer& answer);

  const Workload& workload_;
  Scale scale_;
  std::string first_;
  std::optional<Answer> expected_;
};

// Says on standard error when the figures are those of a build without optimisation.
void warnUnlessOptimised();

}  // namespace Tavro::Bench
