// Makes the FrameData of one stream, several to a block, so that what arrives together lies
// together.
//
// Frames of many streams arrive in turn but leave a group at a time. Allocated one by one, the
// frames of a group would lie as many blocks apart as there are streams, and each would be fetched
// from far away when the group goes. A block is let go with the last of its frames.
//
// Threads: making is done under the service's intake mutex; a frame, and with it its block, may go
//          on any thread.
// Errors:  only memory exhaustion throws.
#pragma once

#include <cstdint>
#include <memory>

#include "video/frame_data.h"

namespace tvx {

class FrameSlab;

class FrameMaker {
 public:
  FrameMaker() = default;
  ~FrameMaker();
  FrameMaker(const FrameMaker&) = delete;
  FrameMaker& operator=(const FrameMaker&) = delete;

  // The buffer is still the host's (FrameData::TakeOver).
  std::shared_ptr<FrameData> Make(const void* handle, std::uint32_t length);

 private:
  FrameSlab* open_ = nullptr;  // has unused slots; shared with the frames in the others
};

}  // namespace tvx
