// The account of the frame buffers that cross to the plug-in and back.
//
// A frame that Write answers with 1 comes back exactly once, by a release request, on any thread
// and possibly before Write returns; one that it answers with 0 stays the host's and never comes
// back. After Unload nothing is out. Whatever breaks this is recorded as a fault.
//
// Owns:    every buffer. What has come back, or was refused, is overwritten and kept for a while:
//          a plug-in that still reads it shows a broken picture, and an address that comes back
//          twice is not taken for a new frame.
// Threads: any. Locks: its own, before the timeline's; the plug-in is never called with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <unordered_map>

#include "base/mutex.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

class FrameBooks {
 public:
  // The timeline must outlive this object.
  explicit FrameBooks(Timeline& timeline) : timeline_(timeline) {}
  FrameBooks(const FrameBooks&) = delete;
  FrameBooks& operator=(const FrameBooks&) = delete;

  // A buffer goes into a Write. The handle is its address.
  const void* Offer(std::uint32_t stream, std::unique_ptr<std::uint8_t[]> bytes, std::size_t size)
      EXCLUDES(mutex_);
  // What Write said.
  void Answered(const void* handle, bool taken) EXCLUDES(mutex_);
  // A release request.
  void GiveBack(const void* handle) EXCLUDES(mutex_);

  // Unload has returned: what is still out is lost. Records the account of each stream.
  void Unloaded() EXCLUDES(mutex_);

 private:
  enum class State {
    Offered,     // Write has not returned
    CameAtOnce,  // given back, but Write has not returned
    Taken,
    Refused,
    GivenBack,
  };
  struct Buffer {
    std::uint32_t stream;
    State state;
    std::unique_ptr<std::uint8_t[]> bytes;
    std::size_t size;
  };

  void Retire(const void* handle, Buffer& buffer, State state) REQUIRES(mutex_);
  void RecordFault(const Buffer& buffer, const char* what) REQUIRES(mutex_);

  Timeline& timeline_;
  Mutex mutex_;
  std::unordered_map<const void*, Buffer> buffers_ GUARDED_BY(mutex_);
  std::deque<const void*> retired_ GUARDED_BY(mutex_);  // refused or given back, oldest first
  std::size_t retiredBytes_ GUARDED_BY(mutex_) = 0;
  std::map<std::uint32_t, FrameAccount> accounts_ GUARDED_BY(mutex_);  // by stream
};

}  // namespace tvx::tool
