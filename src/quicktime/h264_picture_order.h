// Where in the order of showing an H.264 picture stands, read from the head of its first slice.
//
// Standard: ITU-T H.264, 7.3.3 (slice header), 8.2.1 (picture order count, types 0, 1 and 2) and
//           7.4.1.2.4 (which field is the second one of a frame). Not followed: the memory command
//           5, with which an encoder begins anew without an IDR picture; cameras do not send it.
// Threads: one at a time: those of the movie writer that owns it.
// Errors:  a slice that is cut off, or of sets that are not known, has no place.
#pragma once

#include <cstdint>
#include <optional>

#include "quicktime/byte_view.h"
#include "quicktime/h264_parameter_sets.h"
#include "quicktime/presentation.h"

namespace quicktime {

struct H264Picture {
  ShownPlace place;
  bool isSecondField = false;  // of the frame whose first field came right before
};

class H264PictureOrder {
 public:
  // Of the first slice of each picture, one after the other, and the sets that it refers to.
  std::optional<H264Picture> Read(ByteView slice, const H264ParameterSets& sets);

 private:
  struct Slice {
    bool isIdr = false;
    bool isReference = false;
    std::uint32_t frameNumber = 0;
    bool isField = false;
    bool isBottom = false;
    std::uint32_t lsb = 0;
    std::int64_t deltaToBottom = 0;
    std::int64_t deltas[2] = {0, 0};
  };

  static std::optional<Slice> ReadSlice(ByteView unit, const H264OrderParameters& order,
                                        bool hasDeltas);
  std::int64_t PlaceByLsb(const Slice& slice, const H264OrderParameters& order);
  std::int64_t PlaceByFrameNumber(const Slice& slice, const H264OrderParameters& order);

  std::optional<Slice> first_;  // the picture before, unless it completed a frame
  std::uint32_t run_ = 0;
  // Type 0: of the last reference picture.
  std::int64_t msb_ = 0;
  std::uint32_t lsb_ = 0;
  // Types 1 and 2: of the last picture.
  std::uint32_t frameNumber_ = 0;
  std::int64_t frameNumberOffset_ = 0;
};

}  // namespace quicktime
