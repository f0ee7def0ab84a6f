// Follows the plug-in's retry queue from outside, by what it logs and launches. Nothing else in the
// tools reads the wording of its log.
//
// Threads: its owner's.
// Limits:  it knows what the log tells. A line that the plug-in cut short changes nothing.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "simulated_host/host_event.h"

namespace tvx::tool {

// The file that a transfer sends, or nothing when the program is no transfer.
std::string UploadedFile(const Launch& launch);

class RetryTracker {
 public:
  // What this event changes in the queue. Seconds are the plug-in's, as in the timeline.
  std::vector<RetryChange> Follow(double seconds, const HostEvent& event);

 private:
  struct Waiting {
    std::string file;
    double since = 0;
    int attempts = 1;
  };
  using Position = std::deque<Waiting>::iterator;

  std::vector<RetryChange> Follow(double seconds, const std::string& line);
  Position Find(const std::string& file);

  std::deque<Waiting> queue_;  // oldest first
  std::string lastFile_;       // that the transfer program was given
  bool final_ = false;         // the attempt under way has failed for good
};

}  // namespace tvx::tool
