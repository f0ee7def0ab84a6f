// The roads of a notification through the plug-in, each taken once with at most one fault.
// Threads: the main thread of a process that does nothing else.
#pragma once

#include <string>
#include <vector>

#include "faults/fault_points.h"

namespace tvx::faults {

enum class Road {
  Plain,  // a change of the configuration, an event, a message
  Video,  // frames of two cameras, an event with clips, a message with a movie and a picture
  Retry,  // an event, a message that is not accepted at first
  End,    // Close and Unload while a notification waits for its clips
};

struct RoadOutcome {
  bool hasStruck = false;             // else the road has fewer such calls
  bool isDelivered = false;           // the alarm, in spite of it; else its loss has been told
  std::vector<std::string> findings;  // what the fault has broken; nothing when all is well
};

// Lets the n-th call of the kind fail on the road, and looks whether all that must hold does.
RoadOutcome TakeRoad(Road road, Kind kind, unsigned n);

}  // namespace tvx::faults
