// One coded frame, and the group of pictures that it belongs to.
//
// Frames are held by reference and never decoded or copied: copying a group copies references.
// Threads: none of their own; a group that nobody changes any more may be read from any thread.
#pragma once

#include <boost/container/small_vector.hpp>
#include <cstdint>
#include <memory>

#include "quicktime/stream_headers.h"
#include "video/frame_data.h"

namespace tvx {

// What a stream's decoder needs in front of the frames; null until it was seen.
using KnownHeaders = std::shared_ptr<const quicktime::StreamHeaders>;

constexpr std::uint32_t kKeyFrame = 1;  // any other type depends on the frames before it

struct VideoFrame {
  std::uint32_t arrivalTime = 0;    // tick at which the frame was taken
  std::uint32_t type = 0;           // kKeyFrame or a dependent frame
  std::uint32_t payloadOffset = 0;  // where the coded data begin; never beyond the length
  std::shared_ptr<const FrameData> data;

  bool IsKey() const { return type == kKeyFrame; }
  const std::uint8_t* Payload() const {
    return static_cast<const std::uint8_t*>(data->Handle()) + payloadOffset;
  }
  std::uint32_t PayloadLength() const { return data->Length() - payloadOffset; }
};

struct FrameGroup {
  std::uint32_t bytes = 0;  // sum of the frames' lengths
  // The first frame lies in the group itself, so that a still picture costs no further block and
  // no frame ever needs more than one beside its FrameData.
  boost::container::small_vector<VideoFrame, 1> frames;
  KnownHeaders headers;  // of the stream, its first frame's included

  // 0 for an empty group.
  std::uint32_t FirstArrival() const { return frames.empty() ? 0 : frames.front().arrivalTime; }
  std::uint32_t LastArrival() const { return frames.empty() ? 0 : frames.back().arrivalTime; }
};

}  // namespace tvx
