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
//   contains-N, intersects-N
//              pairs of arrays of N elements, half of which are as asked for; beside C++ that sorts copies,
//              over the same tables
//   index-less, index-hash
//              rows come in, and each is looked up by an index whose order, or hash and equality, is a
//              program; beside the same index by columns
//   routing    the longest prefix that holds an address among as many routes, by shortening it; beside itself
//              with an index whose order is a program, SQLite and C++ with a std::map of the routes
//   pipeline-N each event goes through N stages, tables between them; beside SQLite (a trigger for each
//              stage) and C++ callbacks over the same tables
//   pressure-N all rows of a table at once through four stages whose tables in between take N rows; beside
//              the same stages without limits
namespace Tavro::Bench {

const std::vector<Workload>& workloads() {
  static const std::vector<Workload> all{
      {"dispatch", "instruction", 21, {2'000'000, 0}, {200'000, 0}, 0, dispatchEntrants()},
      {"oneshot", "row", 1, {1'000'000, 20240601}, {100'000, 20240601}, 640, oneshotEntrants()},
      {"standing", "row", 1, {1'000'000, 20240602}, {100'000, 20240602}, 640, standingEntrants()},
      {"lookup", "probe", 1, {1'000'000, 20240603}, {100'000, 20240603}, 640, lookupEntrants()},
      {"load", "statement", 1, {10'000, 0}, {10'000, 0}, 1'000, loadEntrants()},
      {"contains-4", "pair", 1, {500'000, 20240604}, {50'000, 20240604}, 640, contains4Entrants()},
      {"contains-64", "pair", 1, {50'000, 20240605}, {5'000, 20240605}, 1'500, contains64Entrants()},
      {"contains-1024", "pair", 1, {3'000, 20240606}, {500, 20240606}, 20'000, contains1024Entrants()},
      {"intersects-4", "pair", 1, {500'000, 20240607}, {50'000, 20240607}, 640, intersects4Entrants()},
      {"intersects-64", "pair", 1, {50'000, 20240608}, {5'000, 20240608}, 1'500, intersects64Entrants()},
      {"intersects-1024", "pair", 1, {3'000, 20240609}, {500, 20240609}, 20'000, intersects1024Entrants()},
      {"index-less", "row", 1, {200'000, 20240610}, {20'000, 20240610}, 640, indexLessEntrants()},
      {"index-hash", "row", 1, {200'000, 20240610}, {20'000, 20240610}, 640, indexHashEntrants()},
      {"routing", "address", 1, {100'000, 20240611}, {10'000, 20240611}, 1'500, routingEntrants()},
      {"pipeline-1", "event", 1, {500'000, 20240612}, {50'000, 20240612}, 640, pipeline1Entrants()},
      {"pipeline-2", "event", 1, {500'000, 20240612}, {50'000, 20240612}, 960, pipeline2Entrants()},
      {"pipeline-4", "event", 1, {500'000, 20240612}, {50'000, 20240612}, 1'600, pipeline4Entrants()},
      {"pressure-1", "event", 1, {200'000, 20240613}, {20'000, 20240613}, 1'600, pressure1Entrants()},
      {"pressure-16", "event", 1, {200'000, 20240613}, {20'000, 20240613}, 1'600, pressure16Entrants()},
      {"pressure-1024", "event", 1, {200'000, 20240613}, {20'000, 20240613}, 1'600, pressure1024Entrants()},
  };
  return all;
}

}  // namespace Tavro::Bench
