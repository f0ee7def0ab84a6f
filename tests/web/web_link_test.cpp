#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "base/base64.h"
#include "support/fake_host.h"
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
  const struct {
    WebLinkEvent event;
    std::string address, answer;
    std::vector<SourceId> cameras;
    std::string status;
    std::vector<test::LogLine> log;
    std::size_t questions;
  } rows[] = {
      {{false, 1, 2}, "", kOlder, kCameras, "[Not a Video Source Event]", {}, 0},
      {kEvent,
       "",
       kOlder,
       kCameras,
       "[No Valid Web Server Address]",
       {{50, "Web Server not configured. No link will be generated"}},
       0},
      {kEvent,
       "https://",
       kOlder,
       kCameras,
       "[No Valid Web Server Address]",
       {{50, "Web Server not configured. No link will be generated"}},
       0},
      {kEvent,
       "http://camhost:81",
       "<html>",
       kCameras,
       "[Invalid Web Server Version]",
       {{50, "Incompaitble web server version. No link will be generated"}},
       1},
      {kEvent,
       "http://camhost:81",
       R"({"list":[{"serial":"B","id":"7"}]})",
       kCameras,
       "[Tavrix System Not Found]",
       {{50, "System with serial A1 not found on the web server camhost:81"}},
       1},
      {kEvent, "http://camhost:81", kOlder, {}, "[Connected to Web Server]", {}, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.status);
    host_.ClearLog();
    questions_.clear();
    EXPECT_EQ(Build(row.event, row.answer, row.cameras, row.address), row.status);
    EXPECT_EQ(host_.Log(), row.log);
    EXPECT_EQ(questions_.size(), row.questions);
  }
}

}  // namespace
}  // namespace tvx
