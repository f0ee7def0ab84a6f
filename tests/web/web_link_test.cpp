#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "base/base64.h"
#include "support/fake_host.h"
#include "support/table.h"
#include "web/web_link.h"

namespace tvx {
namespace {

const char kOlder[] = R"({"list":[{"serial":"A1","id":"7"}]})";
const char kNewer[] = R"({"list":[{"serial":"A1","id":"7","model":"M"}]})";
const std::vector<SourceId> kCameras = {MakeSourceId(0, 0x10000, 2, 1),
                                        MakeSourceId(15, 0x0FFF0000, 255, 255)};
constexpr WebLinkEvent kEvent{true, 1499999990, 1500000030};

class WebLinkTest : public testing::Test {
 protected:
  std::string Build(const WebLinkEvent& event, const std::string& answer,
                    const std::vector<SourceId>& cameras = kCameras,
                    const std::string& address = "HTTPS://[::1]:81",
                    const std::string& serial = "A1") {
    return BuildWebLink(event, address, serial, cameras, {kModuleId, &test::FakeHost::Entry},
                        [&](const WebServerAddress& asked, const std::string& path) {
                          questions_.push_back(asked.host + " " + asked.port + " " + path);
                          return answer;
                        });
  }

  test::FakeHost host_;
  std::vector<std::string> questions_;
};

std::string Link(const std::string& address, const std::string& id, const std::string& json) {
  return "http://" + address + "/advanced.web?s=" + id + ";#" +
         Base64Encode(json.data(), json.size());
}

TEST_F(WebLinkTest, OlderWebServersGetSourceIdentifiersAsTheyAre) {
  EXPECT_EQ(Build(kEvent, kOlder),
            Link("[::1]:81", "7",
                 R"({"searchServerId":"7","searchCameraIds":[66049,4294967295],)"
                 R"("searchStart":1499999990000,"searchEnd":1500000030000,)"
                 R"("mode":"search","quality":7,"size":100})"));
  EXPECT_EQ(questions_, (std::vector<std::string>{"::1 81 /login.web?output=json"}));
  EXPECT_TRUE(host_.Log().empty());
}

TEST_F(WebLinkTest, NewerWebServersGetTheirParts) {
  EXPECT_EQ(Build(kEvent, kNewer, kCameras, "camhost"),
            Link("camhost", "7",
                 R"({"m":2,"sb":1,"sm":1,"st":1499999990000,"et":1500000030000,"items":[)"
                 R"({"p":1,"s":2,"i":1,"t":"camera"},{"p":4095,"s":255,"i":255,"t":"camera"}]})"));
}

TEST_F(WebLinkTest, AnEmptyWindowIsOneMinute) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  const struct {
    std::int64_t start, end;
    std::string times;
  } rows[] = {
      {100, 101, R"("st":100000,"et":101000)"},
      {100, 100, R"("st":100000,"et":160000)"},
      {100, 40, R"("st":100000,"et":160000)"},
      {kMax, kMax, R"("st":9223372036854775807000,"et":9223372036854775807000)"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Build({true, row.start, row.end}, kNewer, {{0x10201}}, "camhost"),
              Link("camhost", "7",
                   R"({"m":2,"sb":1,"sm":1,)" + row.times +
                       R"(,"items":[{"p":1,"s":2,"i":1,"t":"camera"}]})"));
  }
}

// An id comes from another machine: it must neither end the JSON text nor the link.
TEST_F(WebLinkTest, AHostileIdStaysInItsPlaceInBothTexts) {
  EXPECT_EQ(
      Build({true, 1, 2}, R"({"list":[{"serial":"A1","id":"a\"],\\ <&;#\n"}]})", {{5}}, "camhost"),
      Link("camhost", "a%22],\\%20%3c&%3b%23%0a",
           R"({"searchServerId":"a\"],\\ <&;#\n","searchCameraIds":[5],)"
           R"("searchStart":1000,"searchEnd":2000,"mode":"search","quality":7,"size":100})"));
}

TEST_F(WebLinkTest, SaysWhyThereIsNoLink) {
  for (const auto& row : test::Rows(R"(
                        | []                | x | [No Valid Web Server Address] | Web Server not configured. No link will be generated
      https://          | []                | x | [No Valid Web Server Address] | Web Server not configured. No link will be generated
      http://camhost:81 | <html>            | x | [Invalid Web Server Version]  | Incompaitble web server version. No link will be generated
      http://camhost:81 | {"list":[{"serial":"B","id":"7"}]} | | [Tavrix System Not Found] | System with serial A1 not found on the web server camhost:81
      camhost           | {"list":[{"serial":"A1","id":"7"}]} | | [Connected to Web Server] | )")) {
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
