#include "web/web_link.h"

#include <gtest/gtest.h>

#include <boost/format.hpp>
#include <boost/regex.hpp>
#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

#include "base/base64.h"
#include "base/percent_encode.h"
#include "support/fake_host.h"
#include "support/table.h"
#include "web/web_server_address.h"

namespace tvx {
namespace {

// Host, port, both, and whether one colon at most stands in it.
TEST(WebServerAddress, IsSplitIntoItsParts) {
  const auto row = [](const std::string& text) {
    const WebServerAddress address = ParseWebServerAddress(text);
    std::string parts;
    for (const std::string& part : {address.host, address.port, address.hostPort}) {
      parts += (part.empty() ? "-" : part) + ' ';
    }
    return parts + (address.isIPv4 ? "v4" : "");
  };
  test::ExpectRows(row, test::Table(TABLES));
}

TEST(PercentEncode, KeepsOnlyTheUnreservedCharacters) {
  for (int c = 0; c < 256; ++c) {
    std::string byte(1, static_cast<char>(c));
    const bool isKept = c < 128 && (std::isalnum(c) != 0 || byte.find_first_of("-._~") == 0);
    if (!isKept) byte = (boost::format("%%%02x") % c).str();
    EXPECT_EQ(PercentEncode("a" + std::string(1, static_cast<char>(c)) + "a"), "a" + byte + "a");
  }
}

const std::vector<SourceId> kCameras = {MakeSourceId(0, 0x10000, 2, 1),
                                        MakeSourceId(15, 0x0FFF0000, 255, 255)};
constexpr const char* kItems =
    R"("items":[{"p":1,"s":2,"i":1,"t":"camera"},{"p":4095,"s":255,"i":255,"t":"camera"}]})";
constexpr WebLinkEvent kEvent{true, 1499999990, 1500000030};

class WebLinkTest : public testing::Test {
 protected:
  std::string Build(const WebLinkEvent& event, const std::string& answer,
                    const std::vector<SourceId>& cameras = kCameras,
                    const std::string& address = "HTTPS://[::1]:81") {
    return BuildWebLink(event, address, "A1", cameras, {kModuleId, &test::FakeHost::Entry},
                        [&](const WebServerAddress& asked, const std::string& path) {
                          questions_.push_back(asked.host + " " + asked.port + " " + path);
                          return answer;
                        });
  }

  test::FakeHost host_;
  std::vector<std::string> questions_;
};

// Older web servers get source identifiers as they are, newer ones, which tell a model, their parts.
// An empty window is one minute. The id comes from another machine: it must end neither text.
TEST_F(WebLinkTest, HoldsTheSearchAsJson) {
  for (const auto& row : test::Rows(test::Table(TABLES))) {
    SCOPED_TRACE(row[0]);
    const std::string json = boost::regex_replace(row[4], boost::regex("@"), kItems);
    questions_.clear();
    EXPECT_EQ(
        Build({true, std::stoll(row[1]), std::stoll(row[2])},
              R"({"list":[{"serial":"A1")" + row[0] + "}]}"),
        "http://[::1]:81/advanced.web?s=" + row[3] + ";#" + Base64Encode(json.data(), json.size()));
    EXPECT_EQ(questions_, (std::vector<std::string>{"::1 81 /login.web?output=json"}));
    EXPECT_TRUE(host_.Log().empty());
  }
}

TEST_F(WebLinkTest, SaysWhyThereIsNoLink) {
  for (const auto& row : test::Rows(test::Table(TABLES))) {
    SCOPED_TRACE(row[3]);
    host_.ClearLog();
    questions_.clear();
    EXPECT_EQ(Build({false, 1, 2}, row[1], kCameras, row[0]), "[Not a Video Source Event]");
    EXPECT_EQ(questions_.size() + host_.Log().size(), 0U);
    EXPECT_EQ(Build(kEvent, row[1], row[2].empty() ? std::vector<SourceId>{} : kCameras, row[0]),
              row[3]);
    EXPECT_EQ(questions_.size(), row[0].find("camhost") == std::string::npos ? 0U : 1U);
    EXPECT_EQ(host_.Log(), row[4].empty() ? std::vector<test::LogLine>{}
                                          : (std::vector<test::LogLine>{{50, row[4]}}));
  }
}

}  // namespace
}  // namespace tvx
