// A host that costs next to nothing: it counts, and keeps nothing.
//
// One per process, as its entry is a plain function. Safe from any thread.
#pragma once

#include <cstdint>
#include <functional>

#include "host/host_records.h"

namespace tvx::bench {

class QuietHost {
 public:
  // What the plug-in gets in Load.
  static int Entry(HostRequest* request, HostReply* reply);

  static std::uint32_t ReleasedFrames();
  static std::uint32_t WatchdogEvents();

  // Takes the request of every launch, on the plug-in's thread; reports must come from another.
  // Without a handler every launch is refused. Not while the plug-in runs.
  static void OnLaunch(std::function<void(std::uint32_t request)> handler);
};

}  // namespace tvx::bench
