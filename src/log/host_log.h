// The operational log: one formatted line per call, written to the host's log.
//
// Threads: any, at once; the buffer is on the caller's stack and no lock is taken. The host's log
//          may be slow, so callers avoid holding locks that the frame path needs.
// Errors:  none. Before Load (null entry) nothing happens; the host's answer is ignored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/host_records.h"

namespace tvx {

enum class LogLevel : std::uint32_t { Information = 25, Warning = 50, Error = 75 };

// A line and its terminating NUL.
constexpr std::size_t kLogLineSize = 512;

// Formats as printf does, cut to 511 characters, and sends the text with its terminating NUL, each
// control character as a blank. The host adds time and module name; no line end is appended.
[[gnu::format(printf, 4, 5)]] void HostLog(std::uint32_t module, HostServiceEntry entry,
                                           LogLevel level, const char* format, ...);

// The same for a line that needs no formatting.
void HostLogText(std::uint32_t module, HostServiceEntry entry, LogLevel level,
                 std::string_view text);

}  // namespace tvx
