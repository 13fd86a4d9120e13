// The workloads as Google Benchmark runs them: one benchmark WORKLOAD/CONTESTANT each. Takes that library's
// options, and --quick for the smaller scale.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>

#include "workload.h"

namespace {

using namespace Tavro::Bench;

constexpr benchmark::IterationCount fullIterations = 3;

void registerAll(bool isQuick) {
  for (const Workload& workload : workloads()) {
    const auto referee = std::make_shared<Referee>(workload, isQuick);
    const auto events = static_cast<std::int64_t>(referee->scale().items * workload.eventsPerItem);
    for (const Entrant& entrant : workload.entrants) {
      const auto measure = [referee, &entrant, events](benchmark::State& state) {
        while (state.KeepRunning()) state.SetIterationTime(referee->time(entrant) * 1e-9);
        state.SetItemsProcessed(state.iterations() * events);
      };
      benchmark::RegisterBenchmark((std::string(workload.name) + "/" + entrant.name).c_str(), measure)
          ->UseManualTime()
          ->Iterations(isQuick ? 1 : fullIterations)
          ->Unit(benchmark::kMillisecond);
    }
  }
}

bool takeFlag(int& count, char** arguments, const char* flag) {
  char** const end = std::remove_if(arguments + 1, arguments + count,
                                    [flag](const char* given) { return std::strcmp(given, flag) == 0; });
  const bool found = end != arguments + count;
  count = static_cast<int>(end - arguments);
  return found;
}

}  // namespace

int main(int argc, char** argv) {
  const bool isQuick = takeFlag(argc, argv, "--quick");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  warnUnlessOptimised();
  try {
    registerAll(isQuick);
    benchmark::RunSpecifiedBenchmarks();
  } catch (const std::exception& failure) {
    std::cerr << "tvop-bench: " << failure.what() << '\n';
    return 1;
  }
}
