// How much memory of the host and of the plug-in clips hold.
//
// A frame counts once, however many clips hold it; the references of a clip to its frames count for
// each clip. Frames that a history holds as well count, too.
// Threads: any; a clip may be let go by the worker while others grow.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>

#include "video/video_frame.h"

namespace tvx {

class ClipTally {
 public:
  std::uint64_t Bytes() const { return bytes_.load(std::memory_order_relaxed); }

  void Hold(const VideoFrame& frame) { bytes_.fetch_add(Held(frame), std::memory_order_relaxed); }
  void Drop(const VideoFrame& frame) {
    bytes_.fetch_sub(Dropped(frame), std::memory_order_relaxed);
  }

  // Of many frames at once, as each change of the sum costs as much as one of a frame.
  void Hold(const std::list<FrameGroup>& groups) {
    bytes_.fetch_add(Sum(groups, Held), std::memory_order_relaxed);
  }
  void Drop(const std::list<FrameGroup>& groups) {
    bytes_.fetch_sub(Sum(groups, Dropped), std::memory_order_relaxed);
  }

 private:
  static std::uint64_t Held(const VideoFrame& frame) {
    return kReference + (frame.data->HoldForClip() ? frame.data->Length() : 0);
  }
  static std::uint64_t Dropped(const VideoFrame& frame) {
    return kReference + (frame.data->DropFromClip() ? frame.data->Length() : 0);
  }

  template <typename Bytes>
  static std::uint64_t Sum(const std::list<FrameGroup>& groups, Bytes bytes) {
    std::uint64_t sum = 0;
    for (const FrameGroup& group : groups) {
      for (const VideoFrame& frame : group.frames) sum += bytes(frame);
    }
    return sum;
  }

  static constexpr std::uint64_t kReference = sizeof(VideoFrame);

  std::atomic<std::uint64_t> bytes_{0};
};

}  // namespace tvx
