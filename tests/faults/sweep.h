// Takes a road again and again, with every single fault there is on it.
// Threads: the main thread of a process that has no other, as it forks.
#pragma once

#include <string>

#include "faults/road.h"

namespace tvx::faults {

// Each run is a process of its own, several at a time, so that one that dies or hangs is a finding
// among others. Prints every finding on standard error and, at the end, the count of faults on
// standard output. True when every fault was survived.
bool SweepRoad(Road road, const std::string& name);

// One fault, with the place where it strikes on standard error. True when it was survived.
bool TryOne(Road road, Kind kind, unsigned n);

}  // namespace tvx::faults
