#include "quicktime/track_timing.h"

#include <algorithm>
#include <numeric>

namespace quicktime {
namespace {

constexpr std::uint64_t kLargest = 0x7FFFFFFF;
constexpr std::uint64_t kUsualFrameMilliseconds = 40;

std::uint64_t Milliseconds(double seconds, std::uint32_t samples) {
  // Written so that what is not a number goes the same way.
  if (!(seconds > 0)) {
    return std::min(kUsualFrameMilliseconds * samples, kLargest);
  }
  const double limit = static_cast<double>(kLargest) / kMovieTimeScale;
  // To the nearest, and positive; the library's rounding would need libm in the host's process.
  // NOLINTNEXTLINE(bugprone-incorrect-roundings)
  const auto rounded = static_cast<std::int64_t>(std::min(seconds, limit) * kMovieTimeScale + 0.5);
  return std::clamp(static_cast<std::uint64_t>(rounded), std::uint64_t{1}, kLargest);
}

}  // namespace

TrackTiming UniformTiming(double seconds, std::uint32_t samples) {
  const std::uint64_t milliseconds = Milliseconds(seconds, samples);
  // One sample takes milliseconds / (1000 * samples) of a second, in lowest terms.
  const std::uint64_t perSecond = std::uint64_t{kMovieTimeScale} * samples;
  const std::uint64_t common = std::gcd(milliseconds, perSecond);
  std::uint64_t sampleDuration = milliseconds / common;
  std::uint64_t timeScale = perSecond / common;
  if (sampleDuration * samples > kLargest) {
    // The finest clock whose sum fits, and its rate to the nearest unit.
    sampleDuration = kLargest / samples;
    timeScale = (sampleDuration * perSecond + milliseconds / 2) / milliseconds;
  }
  return {static_cast<std::uint32_t>(milliseconds), static_cast<std::uint32_t>(timeScale),
          static_cast<std::uint32_t>(sampleDuration),
          static_cast<std::uint32_t>(sampleDuration * samples)};
}

}  // namespace quicktime
