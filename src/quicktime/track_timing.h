// The clocks of a movie whose samples all last equally long.
// Threads: any; no state.
#pragma once

#include <cstdint>

namespace quicktime {

constexpr std::uint32_t kMovieTimeScale = 1000;  // units a second of the movie's own times

// More samples than any clip has, and few enough that all times fit in 31 bits, which is what
// players with signed numbers read.
constexpr std::uint32_t kMaximumSamples = 2'000'000;

struct TrackTiming {
  std::uint32_t movieDuration = 0;   // in units of kMovieTimeScale
  std::uint32_t mediaTimeScale = 0;  // units a second of the samples' times
  std::uint32_t sampleDuration = 0;  // in those units; never 0
  std::uint32_t mediaDuration = 0;   // of all samples together
};

// Times under which so many samples (1 to kMaximumSamples) take the duration in all, rounded to a
// millisecond: exactly where 31 bits hold the sum, else as near as they come to it (to 0.1 ms in
// ten minutes). What is not a positive number gives each sample the time of a usual frame.
TrackTiming UniformTiming(double seconds, std::uint32_t samples);

}  // namespace quicktime
