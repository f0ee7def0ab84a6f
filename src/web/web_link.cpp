#include "web/web_link.h"

#include <algorithm>
#include <boost/system/system_error.hpp>
#include <cstring>
#include <exception>
#include <limits>
#include <optional>
#include <string_view>

#include "base/base64.h"
#include "base/percent_encode.h"
#include "log/host_log.h"
#include "web/http_get.h"
#include "web/login_answer.h"

namespace tvx {
namespace {

constexpr std::int64_t kEmptyWindowSeconds = 60;

WebLinkEvent WidenEmptyWindow(WebLinkEvent event) {
  constexpr std::int64_t kLatest = std::numeric_limits<std::int64_t>::max();
  if (event.windowEnd <= event.windowStart) {
    event.windowEnd =
        std::min(event.windowStart, kLatest - kEmptyWindowSeconds) + kEmptyWindowSeconds;
  }
  return event;
}

// Whole seconds as the milliseconds that the web client counts in.
std::string Milliseconds(std::int64_t seconds) {
  return std::to_string(seconds) + "000";
}

std::string OlderSearch(const std::string& serverIdEscaped, const std::vector<SourceId>& cameras,
                        const WebLinkEvent& window) {
  std::string json = "{\"searchServerId\":\"" + serverIdEscaped + "\",\"searchCameraIds\":[";
  const char* separator = "";
  for (const SourceId camera : cameras) {
    json += separator + std::to_string(camera.value);
    separator = ",";
  }
  json += "],\"searchStart\":" + Milliseconds(window.windowStart) +
          ",\"searchEnd\":" + Milliseconds(window.windowEnd) +
          ",\"mode\":\"search\",\"quality\":7,\"size\":100}";
  return json;
}

std::string NewerSearch(const std::vector<SourceId>& cameras, const WebLinkEvent& window) {
  std::string json = "{\"m\":2,\"sb\":1,\"sm\":1,\"st\":" + Milliseconds(window.windowStart) +
                     ",\"et\":" + Milliseconds(window.windowEnd) + ",\"items\":[";
  const char* separator = "";
  for (const SourceId camera : cameras) {
    json += separator;
    json += "{\"p\":" + std::to_string(camera.DevicePart() >> 16) +
            ",\"s\":" + std::to_string(camera.Number()) +
            ",\"i\":" + std::to_string(camera.Index()) + ",\"t\":\"camera\"}";
    separator = ",";
  }
  json += "]}";
  return json;
}

std::optional<std::string> AskWebServer(const WebServerAddress& address, const WebLinkLog& log,
                                        const WebFetch& fetch) {
  const std::string path = "/login.web?output=json";
  try {
    return fetch ? fetch(address, path) : HttpGet(address, path);
  } catch (const boost::system::system_error& error) {
    HostLog(log.module, log.entry, LogLevel::Error,
            "Unable to communicate with webserver at address %s. %d: %s", address.hostPort.c_str(),
            error.code().value(), error.code().message().c_str());
  } catch (const std::exception& error) {
    HostLog(log.module, log.entry, LogLevel::Error,
            "Unable to communicate with webserver at address %s. Error message: %s",
            address.hostPort.c_str(), error.what());
  }
  return std::nullopt;
}

// A server's id as it is, but for what would end the URL or its query in the mail.
std::string InUrl(const std::string& id) {
  std::string text;
  for (const char c : id) {
    const auto byte = static_cast<unsigned char>(c);
    const bool endsUrl = byte <= ' ' || byte >= 0x7F || std::strchr("\"<>#;", c) != nullptr;
    text += endsUrl ? PercentEncode(std::string_view(&c, 1)) : std::string(1, c);
  }
  return text;
}

}  // namespace

std::string BuildWebLink(const WebLinkEvent& event, const std::string& webServerAddress,
                         const std::string& systemSerial, const std::vector<SourceId>& cameras,
                         const WebLinkLog& log, const WebFetch& fetch) {
  if (!event.fromVideoSource) return "[Not a Video Source Event]";

  const WebServerAddress address = ParseWebServerAddress(webServerAddress);
  if (address.hostPort.empty()) {
    HostLog(log.module, log.entry, LogLevel::Warning,
            "Web Server not configured. No link will be generated");
    return "[No Valid Web Server Address]";
  }

  const std::optional<std::string> answer = AskWebServer(address, log, fetch);
  if (!answer) return "[Web Server Unreachable]";

  const LoginAnswer login = ScanLoginAnswer(*answer, systemSerial);
  if (login.outcome == LoginAnswer::Outcome::NotUnderstood) {
    HostLog(log.module, log.entry, LogLevel::Warning,
            "Incompaitble web server version. No link will be generated");
    return "[Invalid Web Server Version]";
  }
  if (login.outcome == LoginAnswer::Outcome::NotListed) {
    HostLog(log.module, log.entry, LogLevel::Warning,
            "System with serial %s not found on the web server %s", systemSerial.c_str(),
            address.hostPort.c_str());
    return "[Tavrix System Not Found]";
  }
  if (cameras.empty()) return "[Connected to Web Server]";

  const WebLinkEvent window = WidenEmptyWindow(event);
  const std::string search = login.newerSearchFormat
                                 ? NewerSearch(cameras, window)
                                 : OlderSearch(login.serverIdEscaped, cameras, window);
  std::string link = "http://" + address.hostPort + "/advanced.web?s=" + InUrl(login.serverId) +
                     ";#" + Base64Encode(search.data(), search.size());
  return link;
}

}  // namespace tvx
