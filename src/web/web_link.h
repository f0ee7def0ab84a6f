// The link that a mail carries into the host's web client: a search for the video of the event.
//
// The web server is asked once a link whether it knows this system and under which id. When no link
// can be made, a bracketed status text takes its place, so that the reader of the mail learns why;
// the log says it to the administrator.
//
// Threads: any; blocks its thread as long as HttpGet does, and takes no lock.
// Errors:  all end in a status text; nothing but memory exhaustion is thrown.
// Not here: which events get a link (config/templates.h and service/).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "config/source_id.h"
#include "host/host_records.h"
#include "web/web_server_address.h"

namespace tvx {

struct WebLinkEvent {
  bool fromVideoSource = false;
  // The video to show, in seconds since 1970. An end that is not after the start is moved to 60
  // seconds after it.
  std::int64_t windowStart = 0;
  std::int64_t windowEnd = 0;
};

// Where the log lines of a link go.
struct WebLinkLog {
  std::uint32_t module = kModuleId;
  HostServiceEntry entry = nullptr;
};

// Asks a web server for a path and returns the body; throws as HttpGet does.
using WebFetch =
    std::function<std::string(const WebServerAddress& address, const std::string& path)>;

// The link, or one of "[Not a Video Source Event]", "[No Valid Web Server Address]",
// "[Web Server Unreachable]", "[Invalid Web Server Version]", "[Tavrix System Not Found]" and
// "[Connected to Web Server]" (there is no camera to search). The address is what the administrator
// typed; link and log lines name it without its scheme. What would end the URL or its query
// (blanks, quotes, "#") is percent-encoded in the server id; all else of it stands as it is. An
// empty fetch means HttpGet.
std::string BuildWebLink(const WebLinkEvent& event, const std::string& webServerAddress,
                         const std::string& systemSerial, const std::vector<SourceId>& cameras,
                         const WebLinkLog& log, const WebFetch& fetch = {});

}  // namespace tvx
