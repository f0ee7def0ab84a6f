#include "service/throttle.h"

namespace tvx {

bool Throttle::Admit(std::int32_t profileId, std::int32_t intervalSeconds, std::uint32_t now) {
  const auto [entry, isNew] = last_.try_emplace(profileId, Last{intervalSeconds, now});
  if (isNew) return true;
  Last& last = entry->second;
  if (last.intervalSeconds == intervalSeconds) {
    const std::int64_t elapsed = now - last.tick;
    if (std::int64_t{intervalSeconds} * 1000 > elapsed) return false;
  }
  last = {intervalSeconds, now};
  return true;
}

}  // namespace tvx
