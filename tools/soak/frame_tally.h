// How many frames the plug-in holds, and the bytes of memory that they take, at any moment.
//
// The books (simulated_host/frame_books.h) say after Unload whether every frame has come back; this
// is what can be looked at meanwhile. Each buffer begins with a record of the host's, in which its
// size stands.
// Threads: any, without a lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "host/host_records.h"

namespace tvx::soak {

constexpr std::uint32_t kHostRecordSize = 48;

class FrameTally {
 public:
  // Writes the record into a buffer, before it is offered. The size is that of the whole buffer.
  static void Mark(std::uint8_t* buffer, std::size_t size);

  // The answer of Write to a marked buffer of this size.
  void Taken(std::size_t size);

  // A handle that the plug-in gives back. One without a record is the books' to complain about.
  void GivenBack(const void* handle);

  std::int64_t Held() const { return held_; }
  std::int64_t HeldBytes() const { return heldBytes_; }

  // The entry that goes into Load: counts what comes back to this tally, and hands everything on to
  // the next entry. One tally at a time.
  HostServiceEntry CountBefore(HostServiceEntry next);

 private:
  static int Entry(HostRequest* request, HostReply* reply);

  // Of frames that come back before Write has returned, the answer is counted later: both may be
  // negative for a moment.
  std::atomic<std::int64_t> held_{0};
  std::atomic<std::int64_t> heldBytes_{0};
};

}  // namespace tvx::soak
