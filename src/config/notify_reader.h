// Reads the "Notify" block of a document into the configuration.
//
// Threads: any; the caller guards the configuration.
// Errors:  a block that lacks its essentials is rejected (false); single servers and profiles that
//          are malformed are skipped without a word. An observer is told.
#pragma once

#include "config/notify_config.h"

class TiXmlElement;

namespace tvx {

class NotifyReadObserver;

// Takes the settings, servers and profiles of the first "Notify" child of root. On rejection the
// configuration is unchanged, but for the three delivery settings when only "Servers" or "Profiles"
// was missing. The name and attributes of root itself do not matter.
bool ReadNotify(const TiXmlElement& root, NotifyConfig& config);
bool ReadNotify(const TiXmlElement& root, NotifyConfig& config, NotifyReadObserver& observer);

}  // namespace tvx
