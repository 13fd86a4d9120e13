#pragma once

#include <vector>

#include "workload.h"

// The contestants of each workload, ours first.
namespace Tavro::Bench {

std::vector<Entrant> dispatchEntrants();
std::vector<Entrant> oneshotEntrants();
std::vector<Entrant> standingEntrants();
std::vector<Entrant> lookupEntrants();
std::vector<Entrant> loadEntrants();

}  // namespace Tavro::Bench
