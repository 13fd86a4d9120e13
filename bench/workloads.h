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
std::vector<Entrant> contains4Entrants();
std::vector<Entrant> contains64Entrants();
std::vector<Entrant> contains1024Entrants();
std::vector<Entrant> intersects4Entrants();
std::vector<Entrant> intersects64Entrants();
std::vector<Entrant> intersects1024Entrants();
std::vector<Entrant> indexLessEntrants();
std::vector<Entrant> indexHashEntrants();
std::vector<Entrant> routingEntrants();
std::vector<Entrant> pipeline1Entrants();
std::vector<Entrant> pipeline2Entrants();
std::vector<Entrant> pipeline4Entrants();
std::vector<Entrant> pressure1Entrants();
std::vector<Entrant> pressure16Entrants();
std::vector<Entrant> pressure1024Entrants();

}  // namespace Tavro::Bench
