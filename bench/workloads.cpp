#include "workloads.h"

// The workloads:
//   dispatch   the run loop: 21 instructions over one row, again and again; beside Lua and C++
//   oneshot    rows (id, price, quantity): half pass a filter, id and price times quantity go out; beside
//              SQLite (INSERT INTO ... SELECT) and C++ over the same tables
//   standing   the same work for each of the rows as it is inserted; beside SQLite (AFTER INSERT trigger) and
//              a C++ callback over the same tables
//   lookup     each probe finds its row among a tenth as many by key, one row goes out for it; beside SQLite
//              (INTEGER PRIMARY KEY) and C++ over the same tables
//   load       a program is assembled, and is then run to see that it is right; beside Lua's compiler on as
//              many lines
namespace Tavro::Bench {

const std::vector<Workload>& workloads() {
  static const std::vector<Workload> all{
      {"dispatch", "instruction", 21, {2'000'000, 0}, {200'000, 0}, 0, dispatchEntrants()},
      {"oneshot", "row", 1, {1'000'000, 20240601}, {100'000, 20240601}, 640, oneshotEntrants()},
      {"standing", "row", 1, {1'000'000, 20240602}, {100'000, 20240602}, 640, standingEntrants()},
      {"lookup", "probe", 1, {1'000'000, 20240603}, {100'000, 20240603}, 640, lookupEntrants()},
      {"load", "statement", 1, {10'000, 0}, {10'000, 0}, 1'000, loadEntrants()},
  };
  return all;
}

}  // namespace Tavro::Bench
