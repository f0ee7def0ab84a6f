#include "service/throttle.h"

namespace tvx {

bool Throttle::Admit(std::int32_t profileId, std::int32_t intervalSeconds, std::uint32_t now) {
  Advance(now);
  const auto [entry, isNew] = last_.try_emplace(profileId, Last{intervalSeconds, milliseconds_});
  if (isNew) return true;
  Last& last = entry->second;
  if (last.intervalSeconds == intervalSeconds) {
    const std::int64_t elapsed = milliseconds_ - last.milliseconds;
    if (std::int64_t{intervalSeconds} * 1000 > elapsed) return false;
  }
  last = {intervalSeconds, milliseconds_};
  return true;
}

void Throttle::Advance(std::uint32_t now) {
  milliseconds_ += now - lastTick_.value_or(now);
  lastTick_ = now;
}

}  // namespace tvx
