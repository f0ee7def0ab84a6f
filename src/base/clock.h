// The two clocks of the plug-in, replaceable so that tests and tools drive time.
//
// Millisecond tick: unsigned 32-bit milliseconds of the monotonic clock. It wraps every 49.7 days;
//   differences are taken modulo 2^32 and order is the sign of the 32-bit difference, so the wrap
//   is harmless. Frame history, throttle and retry queue live on it.
// Wall clock: seconds since 1970, for deadlines that are compared with the host's ticks and for the
//   times in status documents.
//
// Threads: reading is safe from any thread; replacing a clock is not, and is done before the
//          threads that read it start.
#pragma once

#include <cstdint>
#include <functional>

namespace tvx {

using TickClock = std::function<std::uint32_t()>;
using WallClock = std::function<std::int64_t()>;

// The system's monotonic clock as a tick: seconds x 1000 + nanoseconds / 1,000,000, modulo 2^32.
std::uint32_t MonotonicTick();

// Replaces the process-wide tick clock. An empty callable is taken as it is: reading the tick then
// throws std::bad_function_call.
void SetTickClock(TickClock clock);

// The current tick. Throws std::bad_function_call when no clock is installed.
std::uint32_t TickNow();

// Replaces the process-wide wall clock; an empty callable restores the system's.
void SetWallClock(WallClock clock);

// Seconds since 1970.
std::int64_t WallSeconds();

// later - earlier on a wrapping clock, as a signed number of milliseconds.
constexpr std::int32_t TickDifference(std::uint32_t later, std::uint32_t earlier) {
  return static_cast<std::int32_t>(later - earlier);
}

}  // namespace tvx
