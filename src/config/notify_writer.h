// Builds the documents that carry the configuration out: to the file and to the host.
// Threads: any; nothing is shared.
#pragma once

#include <memory>

#include "config/notify_config.h"

class TiXmlDocument;

namespace tvx {

// A whole "tDVR" document with the "Notify" element of the configuration, every attribute and child
// in its fixed order.
std::unique_ptr<TiXmlDocument> BuildNotifyDocument(const NotifyConfig& config);

}  // namespace tvx
