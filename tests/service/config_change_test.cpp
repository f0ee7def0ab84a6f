#include "service/config_change.h"

#include <gtest/gtest.h>

#include <string>

#include "service/intake_fixture.h"

namespace tvx {
namespace {

using test::Notify;
using test::Profile;

class ConfigChangeTest : public test::IntakeFixture {
 protected:
  static std::string Server(const std::string& name, const std::string& attributes = "") {
    return "<smtp description='" + name + "' address='a' " + attributes +
           "><Authentication username='u' password='p'/></smtp>";
  }
};

TEST_F(ConfigChangeTest, TellsWhichProfilesMayBeConcerned) {
  const std::string a = Server("A"), b = Server("B");
  const std::string both = Profile(1) + Profile(2);
  const struct {
    const char* why;
    std::string servers, profiles;
    Ids concerned;
  } rows[] = {
      {"new profiles", "", both, {1, 2}},
      {"there was no server before", a, both, {1, 2}},
      {"nothing new", a, both, {}},
      {"one more server", a + b, both, {}},
      {"another order", b + a, both, {}},
      {"one fewer", a, both, {1, 2}},
      {"one twice", a + a, both, {}},
      {"and once again", a, both, {1, 2}},
      {"another instead", b, both, {1, 2}},
      {"a new profile", b, both + Profile(3), {3}},
      {"one has gone", b, both, {}},
      {"no mail setting", b, both + Profile(3, "ThrottleSeconds='9' attach='1'"), {3}},
      {"no mail setting",
       b,
       Profile(1, "ThrottleSeconds='9' MaxVideoSeconds='3'") + Profile(2),
       {}},
      {"from", b, Profile(1, "from='g@x'") + Profile(2), {1}},
      {"subject", b, Profile(1, "from='g@x' subject='t'") + Profile(2), {1}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Update(Notify(row.profiles, "", row.servers)), row.concerned) << row.why;
  }
  for (const char* const elements :
       {"<to>u@x</to>", "<to>u@x</to><cc>c@x</cc>", "<to>u@x</to><cc>c@x</cc><bcc>b@x</bcc>",
        "<to>u@x</to><cc>c@x</cc><bcc>b@x</bcc><body>c</body>"}) {
    EXPECT_EQ(Update(Notify(Profile(1, "", elements), "", b)), (Ids{1})) << elements;
    EXPECT_EQ(Update(Notify(Profile(1, "", elements), "", b)), Ids{}) << elements;
  }
}

TEST_F(ConfigChangeTest, ComparesAllSixServerFields) {
  const std::string base =
      "<smtp description='D' address='a' port='25' UseSSL='0'>"
      "<Authentication username='u' password='p'/></smtp>";
  for (const char* const changed : {"E D", "b a", "2 25", "1 0", "v u", "q p"}) {
    Update(Notify(Profile(1), "", base));
    std::string server = base;
    server.replace(server.find("'" + std::string(changed + 2) + "'") + 1,
                   std::string(changed + 2).size(), changed, 1);
    EXPECT_EQ(Update(Notify(Profile(1), "", server)), (Ids{1})) << server;
  }
}

TEST_F(ConfigChangeTest, RejectedBlocksChangeTheSettingsOnly) {
  Configure(Profile(1));
  state_->configurationChanged = false;
  EXPECT_EQ(Update("<Notify ID='786432' MaxRetryQueue='3'><Servers/></Notify>"), std::nullopt);
  EXPECT_EQ(Update("<Notify ID='786433'><Servers/><Profiles/></Notify>"), std::nullopt);
  EXPECT_EQ(Update(""), std::nullopt);
  EXPECT_EQ(state_->config->MaxRetryQueue, 3);
  EXPECT_EQ(state_->config->profiles.size(), 1u);
  EXPECT_FALSE(state_->configurationChanged);
}

TEST_F(ConfigChangeTest, AnAcceptedChangeReachesWorkerAndFrameHistory) {
  TakeSystem(test::TwoCameras());
  EXPECT_TRUE(Frame(test::Source(2)));
  const auto before = state_->config;
  Configure(Profile(1), "EmailSizeLimitMB='0'");
  EXPECT_TRUE(state_->configurationChanged);
  EXPECT_NE(state_->config, before);
  EXPECT_FALSE(Frame(test::Source(2))) << "no video fits into mails of no size";
}

TEST_F(ConfigChangeTest, SecondReviewerModeGoesBothWays) {
  Configure(Profile(1, "attach='1'") + Profile(2, "attach='1'"));
  state_->configurationChanged = false;
  const struct {
    const char* enabled;
    bool saves, isOn;
    int lines;
  } rows[] = {{"5", true, true, 1},  {"1", false, true, 0},  {"x", false, true, 0},
              {"0", true, false, 0}, {"0", false, false, 0}, {"1", true, true, 0}};
  for (const auto& row : rows) {
    host_.ClearLog();
    const std::string users =
        "<Users><SecondReviewer Enabled='" + std::string(row.enabled) + "'/></Users>";
    EXPECT_EQ(TakeSystem(users), row.saves) << row.enabled;
    EXPECT_EQ(state_->config->secondReviewerMode, row.isOn);
    EXPECT_EQ(host_.Log(), std::vector<test::LogLine>(
                               static_cast<std::size_t>(row.lines),
                               {25, "Disabled all attachments for second reviewer mode."}));
    EXPECT_FALSE(state_->config->profiles.at(1).attach || state_->config->profiles.at(2).attach);
  }
  TakeSystem("");
  EXPECT_TRUE(state_->config->secondReviewerMode) << "a document that does not say";
  EXPECT_FALSE(state_->configurationChanged) << "retries stay";
}

TEST_F(ConfigChangeTest, SystemDocumentsKeepWhatTheyDoNotMention) {
  using Seconds = std::map<std::int32_t, std::int32_t>;
  TakeSystem(test::TwoCameras());
  EXPECT_EQ(state_->config->preAlarms, (Seconds{{7, 5}, {8, 5}}));
  TakeSystem("<Events><Event ID='8' PreAlarm='3'/><Event ID='10'/></Events>");
  EXPECT_EQ(state_->config->preAlarms, (Seconds{{7, 5}, {8, 3}}));
  EXPECT_TRUE(state_->eventActions.sources.empty()) << "\"Events\" without actions empty the table";
  TakeSystem(test::TwoCameras());
  EXPECT_TRUE(Frame(test::Source(2)));
  TakeSystem("");
  EXPECT_EQ(state_->eventActions.sources.size(), 2u);
  EXPECT_FALSE(Frame(test::Source(2))) << "but the streams are gone";
}

}  // namespace
}  // namespace tvx
