// The headers in front of the first picture of MPEG-4 part 2 video.
//
// Standard: ISO/IEC 14496-2, 6.2.1 (start codes), 6.2.2 (object sequence), 6.2.3 (object layer).
// Threads: any; no state.
#pragma once

#include "quicktime/byte_view.h"
#include "quicktime/frame_size.h"
#include "quicktime/pixel_shape.h"

namespace quicktime {

struct Mpeg4Headers {
  ByteView bytes;  // within the payload; from the first start code up to the first picture or group
  FrameSize size;  // unknown when the object layer cannot be read
  PixelShape pixels;
};

// False when there is no video object layer among them, without which nothing can be decoded, or
// when they are too long to be headers.
bool FindMpeg4Headers(ByteView payload, Mpeg4Headers& headers);

enum class Mpeg4Picture { None, Anchor, Between };

// Whether a picture begins in the payload, and whether it is shown before the one that was coded
// before it (a B-VOP). Reads no further than to its start.
Mpeg4Picture FindMpeg4Picture(ByteView payload);

}  // namespace quicktime
