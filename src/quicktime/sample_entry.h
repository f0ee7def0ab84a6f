// The video sample description that all formats have in common.
//
// Standard: QuickTime File Format, "Video sample description".
// Threads: one at a time: those of the movie writer that owns it.
#pragma once

#include <cstdint>

#include "quicktime/atom_scope.h"
#include "quicktime/byte_writer.h"
#include "quicktime/frame_size.h"
#include "quicktime/pixel_shape.h"

namespace quicktime {

// What a description may tell of the track beside its format.
struct TrackFacts {
  FrameSize size;
  std::uint32_t largestSample = 0;   // bytes
  std::uint32_t averageBitRate = 0;  // bits a second
  std::uint32_t highestBitRate = 0;
};

// The entry stays open, so that a format can add its own atoms to it.
class VideoSampleEntry {
 public:
  // The name is for people, at most 31 bytes.
  VideoSampleEntry(ByteWriter& out, FourCharacterCode format, const char* compressorName,
                   FrameSize size);

 private:
  AtomScope atom_;
};

// The atom of an entry that says how wide its pixels are; nothing for square ones.
void WritePixelShape(ByteWriter& out, PixelShape pixels);

}  // namespace quicktime
