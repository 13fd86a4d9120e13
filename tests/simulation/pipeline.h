#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace Tavro::Simulation {

// The same numbers for the same seed, on every target.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  // From 0 to `limit` - 1.
  unsigned below(std::size_t limit) { return static_cast<unsigned>(engine_() % limit); }
  bool oneIn(unsigned chances) { return below(chances) == 0; }

 private:
  std::mt19937_64 engine_;
};

// Every table has two columns, k and v.
struct Row {
  int key;
  int value;
  bool operator==(const Row&) const = default;
  auto operator<=>(const Row&) const = default;
};

// What tells the rows of different sources apart: `key % origins` is the number of their source.
inline constexpr unsigned origins = 4;
// The number of the source that joins look up.
inline constexpr unsigned lookupOrigin = origins - 1;
// Values lie below this.
inline constexpr int values = 64;
// How far from a row the copy is that `expand` makes of it.
inline constexpr int copyDistance = 512;

struct TablePlan {
  std::string name;
  bool hasKey;
  unsigned capacity;  // 0 for none
  bool isSource;
  // Its writers come to an end, and this is how many there are; 0 when one of them goes on for ever.
  unsigned fillers;
  // What happens to the rows of one origin does not depend on the order in which things run. Otherwise only
  // what is in the table at last does not.
  bool isExact;
  // Nor does the order of rows that differ in origin.
  bool isOrdered;
  unsigned origins;  // a bit for each origin of its rows
  bool isRead = false;
};

enum class Kind { filter, project, expand, join };
inline constexpr int none = -1;

// - filter: the row itself, if its value is less than `constant`; else nothing, or its deletion.
// - project: the row with another value.
// - expand: the row and a copy under another key.
// - join: the row with the value of the row in table `lookup` whose key is the row's value, whichever of the
//   two comes first.
struct OperatorPlan {
  Kind kind;
  std::size_t in, out;
  std::size_t lookup;  // that of `in` for none
  int constant = 0;
  bool isOneShot = false;
  bool deletesRest = false;
  // Makes the output row column by column instead of passing the input's.
  bool makesRows = false;
  // Scans from the lower bound of the smallest key, instead of from the beginning.
  bool scansFromBound = false;
  // The run fails on a row of this value.
  int poison = none;
};

struct Pipeline {
  // The operators are ready before there is any row, so that each sees every change once. Otherwise they
  // start at any time and scan what is there, while it changes: they see some rows twice.
  bool startsQuietly;
  // Operators belong to no client, and nothing is ever deleted.
  bool isBare;
  std::vector<TablePlan> tables;
  std::vector<OperatorPlan> operators;
};

Pipeline makePipeline(Random& random);
std::string programOf(const Pipeline& pipeline, const OperatorPlan& plan);
// Its tables, operators and programs.
std::string describe(const Pipeline& pipeline);

}  // namespace Tavro::Simulation
