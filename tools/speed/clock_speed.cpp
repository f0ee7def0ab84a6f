// What notifypi-speed.so has beside the plug-in: clocks that can run faster than the world's.
//
// The schedule of retries is one of minutes and days. Who wants to watch it cannot wait that long,
// and the plug-in itself has no switch for it, so the same code is linked once more with this one
// name added. Not for a host that sends real alarms.
#include <chrono>
#include <cmath>
#include <cstdint>

#include "base/clock.h"

namespace {

// Of the moment at which the clocks were set. Captured by nothing: what a function object holds would
// be lost with the library.
double pace;
std::chrono::steady_clock::duration startTime;
std::uint32_t startTick;
std::int64_t startSeconds;

std::int64_t Milliseconds() {
  const std::chrono::duration<double, std::milli> passed =
      std::chrono::steady_clock::now().time_since_epoch() - startTime;
  return static_cast<std::int64_t>(passed.count() * pace);
}

}  // namespace

// Lets both clocks of the plug-in run on from now at this many times the world's pace. A value that
// is no positive number is taken as 1. Before Load only: the clocks are read by every thread.
extern "C" [[gnu::visibility("default")]] void SetClockSpeed(double speed) {
  pace = std::isfinite(speed) && speed > 0 ? speed : 1;
  startTime = std::chrono::steady_clock::now().time_since_epoch();
  startTick = tvx::MonotonicTick();
  startSeconds = tvx::WallSeconds();
  // Through 64 bits, so that the tick wraps as the plug-in's own does.
  tvx::SetTickClock([] { return static_cast<std::uint32_t>(startTick + Milliseconds()); });
  tvx::SetWallClock([] { return startSeconds + Milliseconds() / 1000; });
}
