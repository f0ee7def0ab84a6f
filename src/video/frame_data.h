// The host's buffer of one coded frame, held for as long as anything shows it.
//
// Owns:    the buffer, once the host has been promised so; the destructor is the only place that
//          gives a buffer back.
// Threads: the last reference may go on any thread, without a lock. The host may hold its own lock
//          while it takes a buffer back, so nobody lets frames go under the intake mutex
//          (frame_bin.h).
// Errors:  an exception out of the host's call ends the process.
#pragma once

#include <atomic>
#include <cstdint>

#include "host/host_records.h"

namespace tvx {

class FrameData {
 public:
  // The buffer is still the host's: destroying the object leaves it alone.
  FrameData(const void* handle, std::uint32_t length) : handle_(handle), length_(length) {}
  ~FrameData();
  FrameData(const FrameData&) = delete;
  FrameData& operator=(const FrameData&) = delete;

  // From here on the buffer is the plug-in's and goes back through this entry; a null entry leaves
  // it alone. The one change in the object's life, made under the intake mutex once it is certain
  // that the host will be told that its frame was taken, and before any other thread sees it.
  void TakeOver(HostServiceEntry host) { host_ = host; }

  // For whoever counts what clips hold (clip_tally.h): true when this was the first clip to hold the
  // frame, or the last one. Any thread.
  bool HoldForClip() const { return clips_.fetch_add(1, std::memory_order_relaxed) == 0; }
  bool DropFromClip() const { return clips_.fetch_sub(1, std::memory_order_relaxed) == 1; }

  const void* Handle() const { return handle_; }
  std::uint32_t Length() const { return length_; }  // bytes, the part before the payload included

 private:
  const void* const handle_;
  const std::uint32_t length_;
  HostServiceEntry host_ = nullptr;
  mutable std::atomic<std::uint32_t> clips_{0};
};

}  // namespace tvx
