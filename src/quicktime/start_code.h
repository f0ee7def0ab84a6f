// Finds the byte pattern 00 00 01, with which both H.264 (ITU-T H.264, Annex B) and MPEG-4 part 2
// (ISO/IEC 14496-2) begin their units.
//
// Cost: one pass at the speed of memory. The C library's search for the 01 does the work: it is
//       vectorised for the processor at hand, also in a 32-bit process, and in coded video the byte
//       comes once in some hundreds.
#pragma once

#include <cstddef>
#include <cstdint>

#include "quicktime/byte_view.h"

namespace quicktime {

constexpr std::size_t kStartCodeSize = 3;

// The first byte of the next start code, or end when there is none.
const std::uint8_t* FindStartCode(const std::uint8_t* begin, const std::uint8_t* end);

// The bytes from the first start code on that is followed by a byte, which is its value.
struct StartCode {
  const std::uint8_t* position = nullptr;
  std::uint8_t value = 0;
};

// False when there is none left.
bool NextStartCode(const std::uint8_t* begin, const std::uint8_t* end, StartCode& found);

}  // namespace quicktime
