#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Tavro/database.h"
#include "clientMap.h"
#include "program.h"

namespace Tavro::Tool {

// One operator of a run, and the tables that it joins.
struct Operator {
  std::string path;  // of its program
  Program program;
  bool standing = false;
  ClientMap client{};
  // As the program binds them, the output first; none before they are loaded.
  std::vector<Table*> tables{};

  Table& output() const { return *tables.front(); }
};

// The operators in an order in which each stands behind those whose output it reads, as numbers of
// `operators`. Throws Failure when there is none, because their tables form a cycle.
std::vector<std::size_t> orderOfFlow(const std::vector<Operator>& operators);

}  // namespace Tavro::Tool
