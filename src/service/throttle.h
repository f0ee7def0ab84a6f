// The least time between two notifications of one profile.
//
// Threads: the intake's, under the intake mutex.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

namespace tvx {

class Throttle {
 public:
  // Whether a profile may notify now (a tick), given its interval in seconds; 0 or less does not
  // throttle. The first one, and the first after the interval changed, is admitted. Only an
  // admitted notification restarts the interval.
  bool Admit(std::int32_t profileId, std::int32_t intervalSeconds, std::uint32_t now);

  // Keeps count of time beyond a turn of the clock; called at least once a turn (49.7 days).
  void Advance(std::uint32_t now);

 private:
  struct Last {
    std::int32_t intervalSeconds;
    std::int64_t milliseconds;
  };
  std::map<std::int32_t, Last> last_;
  std::int64_t milliseconds_ = 0;  // since the first tick seen
  std::optional<std::uint32_t> lastTick_;
};

}  // namespace tvx
