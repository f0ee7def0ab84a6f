#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

#include "support/table.h"
#include "web/percent_encode.h"
#include "web/web_server_address.h"

namespace tvx {
namespace {

TEST(WebServerAddress, IsSplitIntoItsParts) {
  for (const auto& row : test::Rows(R"(
      camhost                | camhost  | 80        | camhost         | one colon at most
      camhost:81             | camhost  | 81        | camhost:81      | one
      http://camhost:81      | camhost  | 81        | camhost:81      | one
      HTTPS://camhost        | camhost  | 80        | camhost         | one
      hTTp://https://camhost | https    | //camhost | https://camhost | one
      http:/camhost          | http     | /camhost  | http:/camhost   | one
      10.0.0.1:8080          | 10.0.0.1 | 8080      | 10.0.0.1:8080   | one
      camhost:               | camhost  |           | camhost:        | one
      :8080                  |          | 8080      | :8080           | one
      https://               |          | 80        |                 | one
                             |          | 80        |                 | one
      [fe80::1]:8080         | fe80::1  | 8080      | [fe80::1]:8080  |
      https://[::1]:443      | ::1      | 443       | [::1]:443       |
      fe80::1                | fe80::1  | 80        | fe80::1         |
      [fe80::1]              | fe80::1  | 80        | [fe80::1]       |
      [fe80::1               | [fe80::1 | 80        | [fe80::1        |
      fe80::1]:8080          | e80::1   | 8080      | [e80::1]:8080   |
      ]:8080:                |          | 8080:     | []:8080:        |
      ::                     | ::       | 80        | ::              |)")) {
    SCOPED_TRACE(row[0]);
    const WebServerAddress address = ParseWebServerAddress(row[0]);
    EXPECT_EQ(address.host, row[1]);
    EXPECT_EQ(address.port, row[2]);
    EXPECT_EQ(address.hostPort, row[3]);
    EXPECT_EQ(address.isIPv4, !row[4].empty());
  }
}

TEST(PercentEncode, KeepsOnlyTheUnreservedCharacters) {
  for (int c = 0; c < 256; ++c) {
    char digits[4];
    std::snprintf(digits, sizeof(digits), "%%%02x", static_cast<unsigned>(c));
    const std::string byte(1, static_cast<char>(c));
    const bool isKept = c < 128 && (std::isalnum(c) != 0 || (c != 0 && std::strchr("-._~", c)));
    EXPECT_EQ(PercentEncode("a" + byte + "a"), "a" + (isKept ? byte : digits) + "a");
  }
}

}  // namespace
}  // namespace tvx
