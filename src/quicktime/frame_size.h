// Width and height of a picture in pixels; 0 x 0 is not known.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdint>

namespace quicktime {

struct FrameSize {
  std::uint16_t width = 0;
  std::uint16_t height = 0;

  bool IsKnown() const { return width != 0 && height != 0; }
  friend bool operator==(const FrameSize& a, const FrameSize& b) {
    return a.width == b.width && a.height == b.height;
  }
};

}  // namespace quicktime
