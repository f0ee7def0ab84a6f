// What a movie needs to know of H.264 parameter sets.
//
// Standard: ITU-T H.264, 7.3.2.1.1 (sequence parameter set) and 7.3.2.2 (picture parameter set).
// Threads: any; no state.
// Errors:   a set that is cut off or out of range is none (std::nullopt).
#pragma once

#include <cstdint>
#include <optional>

#include "quicktime/byte_view.h"
#include "quicktime/frame_size.h"

namespace quicktime {

struct H264SequenceParameters {
  std::uint8_t profile = 0;
  std::uint8_t compatibility = 0;
  std::uint8_t level = 0;
  std::uint32_t id = 0;
  // The chroma fields are coded for the High profiles only; else these values are implied.
  bool hasChromaFields = false;
  std::uint8_t chromaFormat = 1;  // 4:2:0
  std::uint8_t lumaBitsMinus8 = 0;
  std::uint8_t chromaBitsMinus8 = 0;
  FrameSize size;  // after cropping; unknown when that part cannot be read
};

struct H264PictureParameters {
  std::uint32_t id = 0;
  std::uint32_t sequenceId = 0;
};

// Of a unit that is not empty, its first byte included; the caller has looked at its type.
std::optional<H264SequenceParameters> ParseSequenceParameters(ByteView unit);
std::optional<H264PictureParameters> ParsePictureParameters(ByteView unit);

}  // namespace quicktime
