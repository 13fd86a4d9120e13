#include "workload.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <bit>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <stdexcept>

namespace Tavro::Bench {

namespace {

std::uint64_t mix(std::uint64_t bits) {
  bits = (bits ^ bits >> 30) * 0xBF58476D1CE4E5B9U;
  bits = (bits ^ bits >> 27) * 0x94D049BB133111EBU;
  return bits ^ bits >> 31;
}

std::string toString(const Answer& answer) {
  return "count " + std::to_string(answer.count) + ", checksum " + std::to_string(answer.checksum);
}

// Touches memory that later allocations are then given, so that page faults, whose price varies widely
// between machines, do not stand in the figures.
void warmHeap(std::size_t bytes) {
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, INT_MAX);
  constexpr std::size_t pageSize = 4096;
  auto* const memory = static_cast<volatile char*>(std::malloc(bytes));
  for (std::size_t i = 0; memory != nullptr && i < bytes; i += pageSize) memory[i] = 1;
  std::free(const_cast<char*>(memory));
}

Result timeRun(const Entrant& entrant, const Scale& scale) {
  const std::unique_ptr<Contestant> contestant = entrant.make(scale);
  const std::clock_t start = std::clock();
  contestant->run();
  const std::clock_t taken = std::clock() - start;
  return {1e9 * static_cast<double>(taken) / CLOCKS_PER_SEC, contestant->answer()};
}

// The whole of a child process.
[[noreturn]] void runAsChild(const Workload& workload, const Entrant& entrant, const Scale& scale, int pipe) {
  try {
    warmHeap(workload.heapPerItem * scale.items);
    const Result result = timeRun(entrant, scale);
    if (write(pipe, &result, sizeof result) == sizeof result) _exit(0);
  } catch (const std::exception& failure) {
    std::cerr << workload.name << ": " << entrant.name << ": " << failure.what() << std::endl;
  }
  _exit(1);
}

}  // namespace

void Answer::add(std::uint64_t id, double value) {
  ++count;
  checksum += mix(mix(id) + std::bit_cast<std::uint64_t>(value));
}

Referee::Referee(const Workload& workload, bool isQuick)
    : workload_(workload), scale_(workload.scale(isQuick)) {}

double Referee::time(const Entrant& entrant) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe to a child process");
  const pid_t child = fork();
  if (child == 0) runAsChild(workload_, entrant, scale_, ends[1]);
  close(ends[1]);
  Result result;
  const bool isTold = child > 0 && read(ends[0], &result, sizeof result) == sizeof result;
  close(ends[0]);
  if (child > 0) waitpid(child, nullptr, 0);
  if (!isTold)
    throw std::runtime_error(std::string(workload_.name) + ": the run of " + entrant.name + " failed");
  check(entrant, result.answer);
  return result.nanoseconds;
}

void Referee::check(const Entrant& entrant, const Answer& answer) {
  if (!expected_) {
    first_ = entrant.name;
    expected_ = answer;
  }
  if (answer != *expected_)
    throw std::runtime_error(std::string(workload_.name) + ": " + entrant.name + " answers " +
                             toString(answer) + "; " + first_ + " answered " + toString(*expected_));
}

void warnUnlessOptimised() {
#ifndef __OPTIMIZE__
  std::cerr << "warning: built without optimisation, the figures say nothing\n";
#endif
}

}  // namespace Tavro::Bench
