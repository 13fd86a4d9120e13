// Our time as a share of each peer's: both run in turn, round by round, so that what disturbs the machine
// disturbs both, and the median of the rounds' ratios counts.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "workload.h"

namespace {

using namespace Tavro::Bench;

constexpr const char* usage =
    "usage: tvop-ratios [--quick] [--rounds N] [--filter NAME]\n"
    "  --quick        3 rounds and smaller sizes\n"
    "  --rounds N     N rounds, 9 by default\n"
    "  --filter NAME  only the ratios whose name contains NAME\n";

struct Options {
  bool isQuick = false;
  int rounds = 0;
  std::string filter;
  bool isHelp = false;
};

// False for a command line that is wrong.
bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const char* const value = i + 1 < argc ? argv[i + 1] : nullptr;
    if (argument == "--quick") {
      options.isQuick = true;
    } else if (argument == "--help") {
      options.isHelp = true;
    } else if (argument == "--rounds" && value != nullptr) {
      options.rounds = std::atoi(value);
      if (options.rounds < 1) return false;
      ++i;
    } else if (argument == "--filter" && value != nullptr) {
      options.filter = value;
      ++i;
    } else {
      return false;
    }
  }
  if (options.rounds == 0) options.rounds = options.isQuick ? 3 : 9;
  return true;
}

// The value below which the given share of the values lies.
double quantile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  const double position = share * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(position);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  return values[below] + (position - static_cast<double>(below)) * (values[above] - values[below]);
}

double median(const std::vector<double>& values) { return quantile(values, 0.5); }

struct Ratio {
  std::string name;
  double value;
  // How far apart the quartiles of the rounds' ratios lie, as a share of the ratio.
  double spread;
};

// What our time is to be at most, as a share of the peer's.
struct Goal {
  const char* name;
  const char* ratio;
  double limit;
};

const std::vector<Goal>& goals() {
  static const std::vector<Goal> all{
      {"dispatch", "dispatch", 1.3},
      {"oneshot", "oneshot", 0.6},
      {"oneshot-native", "oneshot-native", 1.6},
      {"standing", "standing", 0.12},
      {"standing-native", "standing-native", 1.6},
      {"lookup", "lookup", 0.75},
      {"load", "load", 0.8},
      {"rowops", "index-hash", 4},
  };
  return all;
}

// The contestants of one workload, ours first, and what each took in each round.
class Match {
 public:
  Match(const Workload& workload, const Options& options)
      : workload_(workload), referee_(workload, options.isQuick) {
    for (const Entrant& entrant : workload.entrants)
      if (runners_.empty() || std::string(entrant.ratio).find(options.filter) != std::string::npos)
        runners_.push_back({&entrant, {}});
  }

  bool hasPeers() const { return runners_.size() > 1; }

  // Every other round goes the other way round.
  void play(int rounds) {
    for (int round = 0; round < rounds; ++round) {
      for (Runner& runner : runners_) runner.nanoseconds.push_back(referee_.time(*runner.entrant));
      std::reverse(runners_.begin(), runners_.end());
    }
    if (rounds % 2 != 0) std::reverse(runners_.begin(), runners_.end());
  }

  void report(std::vector<Ratio>& ratios) const {
    for (std::size_t i = 1; i < runners_.size(); ++i) ratios.push_back(report(runners_[i]));
  }

 private:
  struct Runner {
    const Entrant* entrant;
    std::vector<double> nanoseconds;
  };

  double perEvent(const Runner& runner) const {
    return workload_.perEvent(median(runner.nanoseconds), referee_.scale());
  }

  Ratio report(const Runner& peer) const {
    const Runner& ours = runners_.front();
    std::vector<double> ratios;
    for (std::size_t i = 0; i < ours.nanoseconds.size(); ++i)
      ratios.push_back(ours.nanoseconds[i] / peer.nanoseconds[i]);
    const double ratio = median(ratios);
    const double lower = quantile(ratios, 0.25);
    const double upper = quantile(ratios, 0.75);
    std::cout << std::left << std::setw(24) << peer.entrant->ratio << std::setw(8) << peer.entrant->name
              << std::setw(12) << workload_.event << std::right << std::fixed << std::setprecision(2)
              << std::setw(10) << perEvent(ours) << std::setw(10) << perEvent(peer) << std::setw(9)
              << std::setprecision(1) << 1e3 / perEvent(ours) << std::setprecision(3) << std::setw(9) << ratio
              << std::setw(9) << lower << std::setw(9) << upper << std::endl;
    return {peer.entrant->ratio, ratio, (upper - lower) / ratio};
  }

  const Workload& workload_;
  Referee referee_;
  std::vector<Runner> runners_;
};

// How noisy the machine was.
void reportNoise(const std::vector<Ratio>& ratios) {
  std::vector<double> spreads;
  for (const Ratio& ratio : ratios) spreads.push_back(ratio.spread);
  const auto worst = std::max_element(spreads.begin(), spreads.end()) - spreads.begin();
  std::cout << std::setprecision(1) << "noise: the quartiles of a ratio lie " << 100 * median(spreads)
            << " % apart (median), at most " << 100 * spreads[static_cast<std::size_t>(worst)] << " % ("
            << ratios[static_cast<std::size_t>(worst)].name << ")\n";
}

// A goal whose ratio was not measured is left out.
void reportGoal(const Goal& goal, const std::vector<Ratio>& ratios) {
  const auto found = std::find_if(ratios.begin(), ratios.end(),
                                  [&goal](const Ratio& ratio) { return ratio.name == goal.ratio; });
  if (found == ratios.end()) return;
  std::cout << std::setprecision(3) << "goal " << goal.name << ' ' << found->value << ' '
            << std::setprecision(2) << goal.limit << (found->value <= goal.limit ? " met" : " short") << '\n';
}

void run(const Options& options) {
  std::vector<Match> matches;
  for (const Workload& workload : workloads()) {
    Match match(workload, options);
    if (match.hasPeers()) matches.push_back(std::move(match));
  }
  if (matches.empty()) throw std::invalid_argument("no ratio has '" + options.filter + "' in its name");

  std::cout << "Times are nanoseconds of processor time per event, medians of " << options.rounds
            << " rounds; ratio is ours by the peer's, with quartiles.\n\n"
            << std::left << std::setw(24) << "name" << std::setw(8) << "peer" << std::setw(12) << "event"
            << std::right << std::setw(10) << "ours" << std::setw(10) << "peer" << std::setw(9) << "M/s"
            << std::setw(9) << "ratio" << std::setw(9) << "25 %" << std::setw(9) << "75 %" << std::endl;
  std::vector<Ratio> ratios;
  for (Match& match : matches) {
    match.play(options.rounds);
    match.report(ratios);
  }
  std::cout << '\n';
  for (const Ratio& ratio : ratios) std::cout << "ratio " << ratio.name << ' ' << ratio.value << '\n';
  std::cout << '\n';
  reportNoise(ratios);
  for (const Goal& goal : goals()) reportGoal(goal, ratios);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parse(argc, argv, options)) {
    std::cerr << usage;
    return 2;
  }
  if (options.isHelp) {
    std::cout << usage;
    return 0;
  }
  warnUnlessOptimised();
  try {
    run(options);
  } catch (const std::exception& failure) {
    std::cerr << "tvop-ratios: " << failure.what() << '\n';
    return 1;
  }
}
