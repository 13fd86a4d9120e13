#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "simulation.h"

// Random pipelines of operators over small tables, compared with what their tables should hold.
//
//   simulate [--seed N] [--seeds COUNT] [--verbose]
//
// Runs the seeds from 1, or one seed, until one fails. --verbose prints the pipeline and all that was done to
// it.
namespace {

using Tavro::Simulation::Simulation;

constexpr std::size_t shownEvents = 30;
constexpr unsigned secondsPerSeed = 60;

struct Options {
  std::uint64_t first = 1;
  std::uint64_t count = 10'000;
  bool isVerbose = false;
};

std::uint64_t currentSeed = 0;

// A crash or a run without end would otherwise not say which seed it was.
extern "C" void dieOnSignal(int) {
  std::array<char, 64> text{"simulate: died in seed "};
  char* const number = text.data() + std::strlen(text.data());
  char* const end = std::to_chars(number, text.data() + text.size() - 1, currentSeed).ptr;
  *end = '\n';
  (void)!write(STDERR_FILENO, text.data(), static_cast<std::size_t>(end + 1 - text.data()));
  _exit(1);
}

bool readNumber(const char* text, std::uint64_t& number) {
  const auto [end, error] = std::from_chars(text, text + std::strlen(text), number);
  return error == std::errc() && *end == '\0';
}

bool readOptions(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--verbose") {
      options.isVerbose = true;
    } else if (option == "--seed" && i + 1 < argc) {
      options.count = 1;
      if (!readNumber(argv[++i], options.first)) return false;
    } else if (option != "--seeds" || i + 1 == argc || !readNumber(argv[++i], options.count)) {
      return false;
    }
  }
  return true;
}

void print(const Simulation& simulation, std::size_t events) {
  const std::vector<std::string>& log = simulation.log();
  std::printf("%s", describe(simulation.pipeline()).c_str());
  for (std::size_t i = log.size() - std::min(events, log.size()); i < log.size(); ++i)
    std::printf("%s\n", log[i].c_str());
}

bool passes(std::uint64_t seed, bool isVerbose) {
  currentSeed = seed;
  alarm(secondsPerSeed);
  Simulation simulation(seed);
  std::string problem;
  try {
    simulation.run();
  } catch (const std::exception& error) {
    problem = error.what();
  }
  if (isVerbose || !problem.empty()) print(simulation, isVerbose ? simulation.log().size() : shownEvents);
  if (!problem.empty())
    std::printf("seed %llu: %s\n", static_cast<unsigned long long>(seed), problem.c_str());
  return problem.empty();
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!readOptions(argc, argv, options)) {
    std::fprintf(stderr, "usage: simulate [--seed N] [--seeds COUNT] [--verbose]\n");
    return 2;
  }
  for (const int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGALRM}) std::signal(signal, dieOnSignal);
  for (const bool keepsOrder : {true, false})
    for (std::uint64_t seed = options.first; seed < options.first + options.count; ++seed)
      if (Simulation::keepsOrder(seed) == keepsOrder && !passes(seed, options.isVerbose)) return 1;
  std::printf("%llu seeds passed\n", static_cast<unsigned long long>(options.count));
  return 0;
}
