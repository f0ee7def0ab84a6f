// Finds the byte pattern 00 00 01, with which both H.264 (ITU-T H.264, Annex B) and MPEG-4 part 2
// (ISO/IEC 14496-2) begin their units.
//
// Every byte of a clip passes through here, so the search runs at the speed of memory where the
// processor has the SSE2 instructions.
// Threads: any; no state.
#pragma once

#include <cstddef>
#include <cstdint>

#include "quicktime/byte_view.h"

namespace quicktime {

constexpr std::size_t kStartCodeSize = 3;

// The first byte of the next start code, or end when there is none.
const std::uint8_t* FindStartCode(const std::uint8_t* begin, const std::uint8_t* end);

// A start code and the byte behind it, which tells what begins there.
struct StartCode {
  const std::uint8_t* position = nullptr;
  std::uint8_t value = 0;
};

// False when there is none left that has a byte behind it.
bool NextStartCode(const std::uint8_t* begin, const std::uint8_t* end, StartCode& found);

}  // namespace quicktime
