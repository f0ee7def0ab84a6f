// What notifypi-speed.so has beside the plug-in: clocks that can run faster than the world's.
//
// The schedule of retries is one of minutes and days. Who wants to watch it cannot wait that long,
// and the plug-in itself has no switch for it, so the same code is linked once more with this one
// name added. Not for a host that sends real alarms.
#include <chrono>
#include <cmath>
#include <cstdint>

#include "base/clock.h"

// Lets both clocks of the plug-in run on from now at this many times the world's pace. A value that
// is no positive number is taken as 1. Before Load only: the clocks are read by every thread.
extern "C" [[gnu::visibility("default")]] void SetClockSpeed(double speed) {
  using std::chrono::steady_clock;
  if (!std::isfinite(speed) || speed <= 0) speed = 1;
  const auto milliseconds = [speed, start = steady_clock::now()] {
    const std::chrono::duration<double, std::milli> passed = steady_clock::now() - start;
    return static_cast<std::int64_t>(passed.count() * speed);
  };
  // Through 64 bits, so that the tick wraps as the plug-in's own does.
  tvx::SetTickClock([milliseconds, start = tvx::MonotonicTick()] {
    return static_cast<std::uint32_t>(start + milliseconds());
  });
  tvx::SetWallClock([milliseconds, start = tvx::WallSeconds()] {  //
    return start + milliseconds() / 1000;
  });
}
