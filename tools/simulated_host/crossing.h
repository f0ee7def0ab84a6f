// What crosses the border between the host and the plug-in, call by call.
//
// Finer than a happening, and for the printers that follow the border only. A crossing refers to
// the memory of the one who records it: it is good until the printer returns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/host_records.h"

namespace tvx::tool {

// The host calls an export; its end follows under the same number, perhaps much later.
struct CallBegin {
  std::uint32_t number;
  std::string_view name;       // of the export
  std::string_view arguments;  // in words
  std::string_view payload;    // a document, or the output of a program
  const ChunkHeader* chunk;    // in front of that output; null for all other calls
};
struct CallEnd {
  std::uint32_t number;
  std::string_view name;
  int returned;
  double seconds;           // of the world's time
  std::string_view breach;  // of the contract, by the result record; empty when there is none
};

// Many and all alike, so that they have no begin.
struct TickWrite {
  int returned;
};
struct FrameWrite {
  std::uint32_t stream;
  std::size_t size;  // bytes of the buffer
  bool key;
  bool taken;
};
struct FrameReturn {
  std::uint32_t stream;
};

// A record of the plug-in. Its payload may be read only when it is well formed. Frame releases that
// are well formed come as FrameReturn only.
struct RequestTaken {
  const HostRequest& request;
  bool wellFormed;
};

// An event document is about to be sent that asks for notifications by these profiles.
struct NotificationsAsked {
  const std::vector<std::int32_t>& profiles;
};

using Crossing = std::variant<CallBegin, CallEnd, TickWrite, FrameWrite, FrameReturn, RequestTaken,
                              NotificationsAsked>;

}  // namespace tvx::tool
