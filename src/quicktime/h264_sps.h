// What a movie needs to know of H.264 parameter sets.
//
// Standard: ITU-T H.264, 7.3.2.1.1 (sequence parameter set), E.1.1 (its usability information) and 7.3.2.2
//           (picture parameter set).
// Threads: any; no state.
// Errors:   a set that is cut off or out of range is none (std::nullopt).
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "quicktime/byte_view.h"
#include "quicktime/frame_size.h"
#include "quicktime/pixel_shape.h"

namespace quicktime {

// How the order in which pictures are shown is coded (8.2.1), and what stands before it in a slice.
struct H264OrderParameters {
  bool isKnown = false;  // else nothing else here is
  bool hasSeparatePlanes = false;
  bool framesOnly = true;
  int frameNumberBits = 4;
  std::uint32_t type = 0;
  int lsbBits = 4;  // of type 0; the others are of type 1
  bool deltaIsAlwaysZero = false;
  std::int32_t offsetForOthers = 0;  // for pictures that nothing refers to
  std::int32_t offsetToBottom = 0;
  std::vector<std::int32_t> offsets;  // of each reference frame of a cycle
};

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
  H264OrderParameters order;
  FrameSize size;  // after cropping; unknown when that part cannot be read
  PixelShape pixels;
};

struct H264PictureParameters {
  std::uint32_t id = 0;
  std::uint32_t sequenceId = 0;
  bool hasDeltas = false;  // slices state how fields differ from the order of their frame
};

// Of a unit that is not empty, its first byte included; the caller has looked at its type.
std::optional<H264SequenceParameters> ParseSequenceParameters(ByteView unit);
std::optional<H264PictureParameters> ParsePictureParameters(ByteView unit);

}  // namespace quicktime
