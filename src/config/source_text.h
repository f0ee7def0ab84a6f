// The text that names an event's source in messages.
// Threads: any; nothing is shared.
#pragma once

#include <cstdint>
#include <string>

#include "config/source_id.h"
#include "config/system_directory.h"

namespace tvx {

// What the source is called for an event of this type: a name of the directory, fixed words with
// the source's number, the empty text for events that concern the system as a whole, or "Unknown".
std::string SourceText(const SystemDirectory& directory, SourceId source, std::int32_t type);

}  // namespace tvx
