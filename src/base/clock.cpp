#include "base/clock.h"

#include <ctime>
#include <utility>

#include "base/immortal.h"

namespace tvx {
namespace {

struct Clocks {
  TickClock tick = MonotonicTick;
  WallClock wall;
};

// Function-local, so that a library that is loaded and never used constructs nothing.
Clocks& Installed() {
  static Immortal<Clocks> clocks;
  return clocks.value;
}

}  // namespace

std::uint32_t MonotonicTick() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint32_t>(now.tv_sec) * 1000u +
         static_cast<std::uint32_t>(now.tv_nsec / 1'000'000);
}

void SetTickClock(TickClock clock) {
  Installed().tick = std::move(clock);
}

std::uint32_t TickNow() {
  return Installed().tick();
}

void SetWallClock(WallClock clock) {
  Installed().wall = std::move(clock);
}

std::int64_t WallSeconds() {
  const WallClock& clock = Installed().wall;
  return clock ? clock() : static_cast<std::int64_t>(std::time(nullptr));
}

}  // namespace tvx
