// How much memory of the host and of the plug-in clips hold.
//
// A frame counts once, however many clips hold it; the references of a clip to its frames count for
// each clip. Frames that a history holds as well count, too.
// Threads: any; a clip may be let go by the worker while others grow.
#pragma once

#include <atomic>
#include <cstdint>

#include "video/video_frame.h"

namespace tvx {

class ClipTally {
 public:
  std::uint64_t Bytes() const { return bytes_.load(std::memory_order_relaxed); }

  void Hold(const VideoFrame& frame) {
    bytes_.fetch_add(frame.data->HoldForClip() ? kReference + frame.data->Length() : kReference,
                     std::memory_order_relaxed);
  }
  void Drop(const VideoFrame& frame) {
    bytes_.fetch_sub(frame.data->DropFromClip() ? kReference + frame.data->Length() : kReference,
                     std::memory_order_relaxed);
  }

 private:
  static constexpr std::uint64_t kReference = sizeof(VideoFrame);

  std::atomic<std::uint64_t> bytes_{0};
};

}  // namespace tvx
