#include "base/clock.h"

#include <ctime>
#include <utility>

namespace tvx {
namespace {

// Function-local, so that a library that is loaded and never used constructs nothing.
TickClock& InstalledTickClock() {
  static TickClock clock = MonotonicTick;
  return clock;
}

WallClock& InstalledWallClock() {
  static WallClock clock;
  return clock;
}

}  // namespace

std::uint32_t MonotonicTick() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint32_t>(now.tv_sec) * 1000u +
         static_cast<std::uint32_t>(now.tv_nsec / 1'000'000);
}

void SetTickClock(TickClock clock) {
  InstalledTickClock() = std::move(clock);
}

std::uint32_t TickNow() {
  return InstalledTickClock()();
}

void SetWallClock(WallClock clock) {
  InstalledWallClock() = std::move(clock);
}

std::int64_t WallSeconds() {
  const WallClock& clock = InstalledWallClock();
  return clock ? clock() : static_cast<std::int64_t>(std::time(nullptr));
}

}  // namespace tvx
