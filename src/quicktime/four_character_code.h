// The four characters by which QuickTime names atoms, formats and brands.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdint>

namespace quicktime {

// First character in the highest byte, as it stands in a file.
using FourCharacterCode = std::uint32_t;

constexpr FourCharacterCode MakeFourCharacterCode(const char (&text)[5]) {
  FourCharacterCode code = 0;
  for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<unsigned char>(text[i]);
  return code;
}

// Coded video as callers announce it.
constexpr FourCharacterCode kH264Video = MakeFourCharacterCode("H264");   // ITU-T H.264, Annex B
constexpr FourCharacterCode kMpeg4Video = MakeFourCharacterCode("DIVX");  // ISO/IEC 14496-2

}  // namespace quicktime
