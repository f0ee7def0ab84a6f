// What a notification's "{weblink}" becomes.
// Threads: the worker's. Locks: none.
#pragma once

#include <string>

#include "host/host_records.h"
#include "service/work_item.h"
#include "web/web_link.h"

namespace tvx {

// The link into the web client for the event's cameras, or a bracketed notice. Asks the web server,
// so it may take as long as an HTTP exchange may; fetch asks it otherwise than by HttpGet. Never
// throws but for memory exhaustion.
std::string WebLinkFor(const NotifyWorkItem& item, HostServiceEntry host,
                       const WebFetch& fetch = {});

}  // namespace tvx
