// The address of the host's web server, as an administrator types it, split into its parts.
//
// Threads: any; a value.
#pragma once

#include <string>

namespace tvx {

struct WebServerAddress {
  std::string host;      // name or address, without brackets
  std::string port;      // decimal, "80" when none was given
  std::string hostPort;  // for "Host: ", links and log lines; without a port when none was given
  bool isIPv4 = false;   // at most one colon, so it is no IPv6 literal
};

// Drops a leading "http://" or "https://" in any case and splits the rest; nothing else of a URL is
// interpreted. Port 80 stands for "https://" too, since the client never speaks TLS. Any text gives
// an address: one that makes no sense fails when it is looked up.
WebServerAddress ParseWebServerAddress(const std::string& text);

}  // namespace tvx
