// What is legal in a configuration, and surely not meant.
// Threads: any; nothing is shared.
#pragma once

#include <tinyxml.h>

#include "config/notify_config.h"
#include "configuration_check/finding.h"
#include "configuration_check/reading.h"

namespace tvx::tool {

// Limits, web server and mail servers. block is the "Notify" that the configuration came from.
void AddDeliveryWarnings(const TiXmlElement& block, const Reading& reading,
                         const NotifyConfig& kept, Findings& findings);

// Addresses, edges and limits of every profile.
void AddProfileWarnings(const TiXmlElement& block, const Reading& reading, const NotifyConfig& kept,
                        Findings& findings);

// Placeholders and dates of one profile's subject and body, as the plug-in expands them.
void AddTemplateWarnings(const TiXmlElement& element, const Reading& reading,
                         const NotifyProfile& profile, const NotifyConfig& kept,
                         Findings& findings);

}  // namespace tvx::tool
