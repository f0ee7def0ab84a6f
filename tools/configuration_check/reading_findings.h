// What was not taken as the file says: skipped, replaced by a default, replaced by a later entry.
// Threads: any; nothing is shared.
#pragma once

#include <tinyxml.h>

#include "config/notify_config.h"
#include "configuration_check/finding.h"
#include "configuration_check/reading.h"

namespace tvx::tool {

// What becomes of a file that is rejected; an effect of several findings.
constexpr const char* kRejected =
    "the plug-in starts with an empty configuration, sends no mail, and keeps the file as "
    "\"notify.xml.rejected\"";

// kept is the configuration that came of the reading.
void AddReadingFindings(const Reading& reading, const NotifyConfig& kept, Findings& findings);

// Everything in the document that the reader never looked at.
void AddIgnoredContent(const TiXmlDocument& document, const Reading& reading, Findings& findings);

}  // namespace tvx::tool
