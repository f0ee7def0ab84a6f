// The findings about a configuration, by what they concern.
// Threads: any; nothing is shared. Time: n log n in the size of the document.
#pragma once

#include <tinyxml.h>

#include <string>

#include "config/config_file.h"
#include "config/notify_config.h"
#include "configuration_check/finding.h"
#include "configuration_check/reading.h"

namespace tvx::tool {

// What was not taken as the file says: skipped, replaced by a default, replaced by a later entry.
// kept is the configuration that came of the reading.
void AddReadingFindings(const Reading& reading, const NotifyConfig& kept, Findings& findings);

// A file that is rejected without a reading.
void AddRejectedFile(const std::string& path, const ConfigDocument& file, Findings& findings);

// Everything in the document that the reader never looked at.
void AddIgnoredContent(const TiXmlDocument& document, const Reading& reading, Findings& findings);

// What is legal, and surely not meant. block is the "Notify" that the configuration came from.
// Limits, web server, mail servers, and who may read the file at this path.
void AddDeliveryFindings(const std::string& path, const TiXmlElement& block, const Reading& reading,
                         const NotifyConfig& kept, Findings& findings);
// Addresses, edges, limits and templates of every profile.
void AddProfileFindings(const Reading& reading, const NotifyConfig& kept, Findings& findings);

}  // namespace tvx::tool
