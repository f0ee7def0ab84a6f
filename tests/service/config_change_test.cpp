#include "service/config_change.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "service/intake_fixture.h"

namespace tvx {
namespace {

class ConfigChangeTest : public test::IntakeFixture {
 protected:
  std::optional<Ids> Change(const std::string& servers, const std::string& profiles,
                            const std::string& attributes = "") {
    return Apply("<Notify ID='786432' " + attributes + "><Servers>" + servers +
                 "</Servers><Profiles>" + profiles + "</Profiles></Notify>");
  }

  std::optional<Ids> Apply(const std::string& notify) {
    const std::string text = "<tDVR Delta='1'>" + notify + "</tDVR>";
    const ParsedDocument parsed = ParseDocument(text.data(), text.size());
    return ApplyNotifyChange(*parsed.Root(), state_);
  }

  static std::string Server(const std::string& name, const std::string& attributes = "") {
    return "<smtp description='" + name + "' address='a' " + attributes +
           "><Authentication username='u' password='p'/></smtp>";
  }
  static std::string Profile(int id, const std::string& attributes = "from='f@x' subject='s'",
                             const std::string& children = "<to>t@x</to>") {
    return "<smtp ID='" + std::to_string(id) + "' description='d' " + attributes + ">" + children +
           "</smtp>";
  }
};

TEST_F(ConfigChangeTest, TellsWhichProfilesMayBeConcerned) {
  const std::string both = Profile(1) + Profile(2);
  EXPECT_EQ(Change(Server("A"), both), (Ids{1, 2}));  // there was no server before
  EXPECT_EQ(Change(Server("A"), both), Ids{});        // nothing new
  EXPECT_EQ(Change(Server("A") + Server("B"), both), Ids{});
  EXPECT_EQ(Change(Server("B") + Server("A"), both), Ids{});  // order does not matter
  EXPECT_EQ(Change(Server("A"), both), (Ids{1, 2}));          // one fewer
  EXPECT_EQ(Change(Server("A"), both + Profile(3)), (Ids{3}));
  // The fields that mail depends on, and those that it does not.
  EXPECT_EQ(Change(Server("A"), Profile(1, "from='g@x' subject='s'") +
                                    Profile(2,
                                            "from='f@x' "
                                            "subject='t'") +
                                    Profile(3, "from='f@x' subject='s' ThrottleSeconds='9'")),
            (Ids{1, 2}));
  EXPECT_EQ(Change(Server("A"), Profile(1, "from='g@x' subject='s'", "<to>u@x</to>")), (Ids{1}));
  EXPECT_EQ(Change(Server("A"), Profile(1, "from='g@x' subject='s'", "<to>u@x</to><bcc>b@x</bcc>")),
            (Ids{1}));
  EXPECT_EQ(Change(Server("A"), Profile(1, "from='g@x' subject='s'",
                                        "<to>u@x</to><bcc>b@x</bcc><body>b</body>")),
            (Ids{1}));
}

TEST_F(ConfigChangeTest, ComparesAllSixServerFields) {
  const std::string base =
      "<smtp description='D' address='a' port='25' UseSSL='0'>"
      "<Authentication username='u' password='p'/></smtp>";
  const std::pair<const char*, const char*> changes[] = {{"'D'", "'E'"},   {"'a'", "'b'"},
                                                         {"'25'", "'26'"}, {"'0'", "'2'"},
                                                         {"'u'", "'v'"},   {"'p'", "'q'"}};
  for (const auto& [from, to] : changes) {
    Change(base, Profile(1));
    std::string changed = base;
    changed.replace(changed.find(from), 3 + (from[2] == '5'), to);
    EXPECT_EQ(Change(changed, Profile(1)), (Ids{1})) << changed;
  }
}

TEST_F(ConfigChangeTest, RejectedBlocksChangeTheSettingsOnly) {
  Change(Server("A"), Profile(1));
  state_.configurationChanged = false;
  EXPECT_EQ(Apply("<Notify ID='786432' MaxRetryQueue='3'><Servers/></Notify>"), std::nullopt);
  EXPECT_EQ(Apply(""), std::nullopt);
  EXPECT_EQ(state_.config->MaxRetryQueue, 3);
  EXPECT_EQ(state_.config->profiles.size(), 1u);
  EXPECT_FALSE(state_.configurationChanged);
}

TEST_F(ConfigChangeTest, AnAcceptedChangeReachesWorkerAndFrameHistory) {
  TakeSystem(test::kTwoCameras);
  EXPECT_TRUE(Frame(test::kGate));
  const auto before = state_.config;
  ASSERT_TRUE(Change(Server("A"), Profile(1), "EmailSizeLimitMB='0'"));
  EXPECT_TRUE(state_.configurationChanged);
  EXPECT_NE(state_.config, before);
  EXPECT_FALSE(Frame(test::kGate));  // no video fits into mails of no size
}

TEST_F(ConfigChangeTest, SecondReviewerModeGoesBothWays) {
  const auto mode = [&](const char* enabled) {
    host_.ClearLog();
    TakeSystem(std::string("<Users><SecondReviewer Enabled='") + enabled + "'/></Users>");
  };
  AddProfile(1, event_edge::kStart, [](NotifyProfile& profile) { profile.attach = true; });
  AddProfile(2, event_edge::kStart, [](NotifyProfile& profile) { profile.attach = true; });
  mode("5");
  EXPECT_TRUE(saveDue_);
  EXPECT_EQ(host_.LogTexts(),
            (std::vector<std::string>{"Disabled all attachments for second reviewer mode."}));
  EXPECT_FALSE(state_.config->profiles.at(1).attach || state_.config->profiles.at(2).attach);
  EXPECT_TRUE(state_.config->secondReviewerMode);
  EXPECT_FALSE(state_.configurationChanged);  // retries stay
  mode("1");
  EXPECT_FALSE(saveDue_);
  mode("x");
  EXPECT_FALSE(saveDue_);
  mode("0");
  EXPECT_TRUE(saveDue_);
  mode("1");  // nobody attaches any more
  EXPECT_TRUE(saveDue_);
  EXPECT_TRUE(host_.Log().empty());
}

TEST_F(ConfigChangeTest, SystemDocumentsKeepWhatTheyDoNotMention) {
  TakeSystem(test::kTwoCameras);
  EXPECT_EQ(state_.config->preAlarms, (std::map<std::int32_t, std::int32_t>{{7, 5}}));
  TakeSystem("<Events><Event ID='9' PreAlarm='3'/><Event ID='10'/></Events>");
  EXPECT_EQ(state_.config->preAlarms, (std::map<std::int32_t, std::int32_t>{{7, 5}, {9, 3}}));
  EXPECT_TRUE(state_.eventActions.sources.empty());  // "Events" without actions empties the table
  TakeSystem(test::kTwoCameras);
  TakeSystem("");
  EXPECT_EQ(state_.eventActions.sources.size(), 2u);
  EXPECT_FALSE(Frame(test::kGate));  // but the streams are gone
}

}  // namespace
}  // namespace tvx
