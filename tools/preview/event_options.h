// Reads the facts of a made-up event from words of the command line.
// Threads: any; the process's time zone is read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tvx::tool {

// Seconds since 1970, from those or from "YYYY-MM-DD HH:MM:SS" of the local time; nothing when it
// is neither, or beyond what an event document can carry (32 bits).
std::optional<std::int32_t> ReadEventTime(const std::string& text);

// The code of an event type, from it or from its display name in upper or lower case; nothing when
// there is no such name.
std::optional<std::int32_t> ReadEventType(const std::string& text);

}  // namespace tvx::tool
