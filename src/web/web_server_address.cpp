#include "web/web_server_address.h"

#include <algorithm>
#include <string_view>

namespace tvx {
namespace {

bool DropPrefix(std::string_view& text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    const char c = text[i];
    const char lower = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    if (lower != prefix[i]) return false;
  }
  text.remove_prefix(prefix.size());
  return true;
}

WebServerAddress ParseIPv6Literal(std::string_view text) {
  WebServerAddress address;
  const std::size_t bracket = text.find("]:");
  if (bracket == std::string_view::npos) {
    address.port = "80";
    address.hostPort = text;
    const bool bracketed = text.front() == '[' && text.back() == ']';
    address.host = bracketed ? text.substr(1, text.size() - 2) : text;
    return address;
  }
  address.port = text.substr(bracket + 2);
  if (bracket > 0) address.host = text.substr(1, bracket - 1);
  address.hostPort = "[" + address.host + "]:" + address.port;
  return address;
}

}  // namespace

WebServerAddress ParseWebServerAddress(const std::string& text) {
  std::string_view rest = text;
  if (!DropPrefix(rest, "http://")) DropPrefix(rest, "https://");

  if (std::count(rest.begin(), rest.end(), ':') > 1) return ParseIPv6Literal(rest);

  WebServerAddress address;
  address.isIPv4 = true;
  address.hostPort = rest;
  const std::size_t colon = rest.find(':');
  address.host = rest.substr(0, colon);
  address.port = colon == std::string_view::npos ? "80" : rest.substr(colon + 1);
  return address;
}

}  // namespace tvx
