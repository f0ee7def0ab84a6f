// Calls from the plug-in into the host, through the one entry that the host hands over in Load.
//
// Threads: any; nothing here takes a lock. The host may be slow, so callers avoid holding locks.
// Errors:  a null entry (before Load) makes every call do nothing and succeed.
#pragma once

#include <cstdint>
#include <string>

#include "host/host_records.h"

namespace tvx {

// A request with size, version, module, command and payload kind set and all else zero.
HostRequest MakeHostRequest(HostCommand command, PayloadKind kind);

HostReply MakeHostReply();

// Sends a printed XML document (ConfigDocument or StatusDocument). Returns the reply's status word.
std::uint32_t SendHostDocument(HostServiceEntry entry, HostCommand command,
                               const std::string& text);

// Gives a frame buffer back to the host that owns it.
void ReleaseHostFrame(HostServiceEntry entry, const void* handle);

// What became of a watchdog event: the entry's return value and the reply's status, both 0 on
// success.
struct WatchdogOutcome {
  int returned = 0;
  std::uint32_t status = 0;
};
WatchdogOutcome SendWatchdogEvent(HostServiceEntry entry);

}  // namespace tvx
