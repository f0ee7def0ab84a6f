#include <gtest/gtest.h>

#include <string>

#include "web/percent_encode.h"
#include "web/web_server_address.h"

namespace tvx {
namespace {

TEST(WebServerAddress, IsSplitIntoItsParts) {
  const struct {
    std::string text, host, port, hostPort;
    bool isIPv4;
  } rows[] = {
      {"camhost", "camhost", "80", "camhost", true},
      {"camhost:81", "camhost", "81", "camhost:81", true},
      {"http://camhost:81", "camhost", "81", "camhost:81", true},
      {"HTTPS://camhost", "camhost", "80", "camhost", true},
      {"hTTp://https://camhost", "https", "//camhost", "https://camhost", true},
      {"http:/camhost", "http", "/camhost", "http:/camhost", true},
      {"10.0.0.1:8080", "10.0.0.1", "8080", "10.0.0.1:8080", true},
      {"camhost:", "camhost", "", "camhost:", true},
      {":8080", "", "8080", ":8080", true},
      {"https://", "", "80", "", true},
      {"", "", "80", "", true},
      {"[fe80::1]:8080", "fe80::1", "8080", "[fe80::1]:8080", false},
      {"https://[::1]:443", "::1", "443", "[::1]:443", false},
      {"fe80::1", "fe80::1", "80", "fe80::1", false},
      {"[fe80::1]", "fe80::1", "80", "[fe80::1]", false},
      {"fe80::1]:8080", "e80::1", "8080", "[e80::1]:8080", false},
      {"]:8080:", "", "8080:", "[]:8080:", false},
      {"::", "::", "80", "::", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const WebServerAddress address = ParseWebServerAddress(row.text);
    EXPECT_EQ(address.host, row.host);
    EXPECT_EQ(address.port, row.port);
    EXPECT_EQ(address.hostPort, row.hostPort);
    EXPECT_EQ(address.isIPv4, row.isIPv4);
  }
}

TEST(PercentEncode, KeepsOnlyTheUnreservedCharacters) {
  EXPECT_EQ(PercentEncode("azAZ09-._~"), "azAZ09-._~");
  EXPECT_EQ(PercentEncode("a b@c+/%"), "a%20b%40c%2b%2f%25");
  EXPECT_EQ(PercentEncode("\xC3\xA9\x7F\xFF"), "%c3%a9%7f%ff");
  EXPECT_EQ(PercentEncode(std::string("\0\n", 2)), "%00%0a");
}

}  // namespace
}  // namespace tvx
