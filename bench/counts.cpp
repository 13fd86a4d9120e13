// What one run of a workload of ours takes besides time: for scripts/instructions, which runs it under
// callgrind, and for the figures of memory.
//
//   tvop-counts NAME    prints "EVENT EVENTS ALLOCATIONS BYTES" for a run at the smaller scale: how many
//   events
//                       the run came to, how often it allocated, and how many more bytes of the heap are in
//                       use behind it than were before

#include <malloc.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "workload.h"

namespace {
std::size_t allocations = 0;
}  // namespace

// What glibc's own functions do, counted. `new` comes here too.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {
  ++allocations;
  return __libc_realloc(block, size);
}
}

namespace Tavro::Bench {

// Callgrind counts what runs inside of this function, which it knows by its name.
[[gnu::noinline]] void runCounted(Contestant& contestant) { contestant.run(); }

}  // namespace Tavro::Bench

namespace {

using namespace Tavro::Bench;

const Workload& workloadOf(const std::string& name) {
  for (const Workload& workload : workloads())
    if (name == workload.name) return workload;
  throw std::invalid_argument("no workload '" + name + "'");
}

std::size_t bytesInUse() {
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
}

void count(const Workload& workload) {
  const std::unique_ptr<Contestant> ours = workload.entrants.front().make(workload.quick);
  const std::size_t bytesBefore = bytesInUse();
  const std::size_t allocationsBefore = allocations;
  runCounted(*ours);
  const std::size_t made = allocations - allocationsBefore;
  const std::size_t bytes = bytesInUse() - bytesBefore;
  ours->answer();
  std::cout << workload.event << ' ' << workload.quick.items * workload.eventsPerItem << ' ' << made << ' '
            << bytes << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: tvop-counts NAME\n";
    return 2;
  }
  warnUnlessOptimised();
  try {
    count(workloadOf(argv[1]));
  } catch (const std::exception& failure) {
    std::cerr << "tvop-counts: " << failure.what() << '\n';
    return 1;
  }
}
