#include "quicktime/start_code.h"

#include <emmintrin.h>

namespace quicktime {
namespace {

constexpr std::ptrdiff_t kBlock = 64;
constexpr std::ptrdiff_t kLane = 16;
constexpr std::ptrdiff_t kBehind = kStartCodeSize - 1;  // bytes of a code behind its first

// Frames lie all over memory and the processor fetches ahead only within a page of 4 KiB, so it is
// told half a page before. An address beyond the frame does no harm: a fetch ahead never faults.
constexpr std::uintptr_t kFetchAhead = 2048;

// 0xFF for each of 16 bytes at which a start code begins.
__attribute__((target("sse2"))) inline __m128i StartsIn(const std::uint8_t* lane) {
  const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lane));
  const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lane + 1));
  const __m128i third = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lane + 2));
  const __m128i unlike =
      _mm_or_si128(_mm_or_si128(first, second), _mm_xor_si128(third, _mm_set1_epi8(1)));
  return _mm_cmpeq_epi8(unlike, _mm_setzero_si128());
}

// The first block at which a start code begins, or the rest that is shorter than a block and what
// follows it in a code. Two zeros alone are no reason to stop: flat pictures are full of them.
__attribute__((target("sse2"))) const std::uint8_t* SkipBlocks(const std::uint8_t* next,
                                                               const std::uint8_t* end) {
  for (; end - next >= kBlock + kBehind; next += kBlock) {
    // By way of an integer, since the address may lie behind the end; it is never read.
    const auto ahead = reinterpret_cast<std::uintptr_t>(next) + kFetchAhead;
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    __builtin_prefetch(reinterpret_cast<void*>(ahead));
    __m128i starts = StartsIn(next);
    for (std::ptrdiff_t lane = kLane; lane < kBlock; lane += kLane) {
      starts = _mm_or_si128(starts, StartsIn(next + lane));
    }
    if (_mm_movemask_epi8(starts) != 0) break;
  }
  return next;
}

bool HasBlocks() {
  static const bool has = __builtin_cpu_supports("sse2") != 0;
  return has;
}

}  // namespace

const std::uint8_t* FindStartCode(const std::uint8_t* begin, const std::uint8_t* end) {
  for (const std::uint8_t* next = HasBlocks() ? SkipBlocks(begin, end) : begin;
       end - next > kBehind; ++next) {
    if (next[0] == 0 && next[1] == 0 && next[2] == 1) return next;
  }
  return end;
}

bool NextStartCode(const std::uint8_t* begin, const std::uint8_t* end, StartCode& found) {
  const std::uint8_t* position = FindStartCode(begin, end);
  if (end - position <= static_cast<std::ptrdiff_t>(kStartCodeSize)) return false;
  found = {position, position[kStartCodeSize]};
  return true;
}

}  // namespace quicktime
