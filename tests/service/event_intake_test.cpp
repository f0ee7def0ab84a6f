#include "service/event_intake.h"

#include <gtest/gtest.h>

#include <string>

#include "service/intake_fixture.h"

namespace tvx {
namespace {

using test::EventEntry;
using test::LogLine;
using test::Profile;
using test::Source;

std::string SourceElement(std::uint32_t id, int type = 2) {
  return "<EventSource ID='" + std::to_string(id) + "' Type='" + std::to_string(type) + "'/>";
}
const char* const kGroup = "<SourceGroup ID='3'/>";

class EventIntakeTest : public test::IntakeFixture {};

TEST_F(EventIntakeTest, DispatchesWhatIsDueByItsEdge) {
  Configure(Profile(1) + Profile(2, "EventEdge='1'") + Profile(3, "EventEdge='2'") +
            Profile(4, "EventEdge='9'"));
  const struct {
    bool starts;
    const char* attributes;
    Ids dispatched;
  } rows[] = {
      {true, "", {1, 3}},
      {false, "", {2, 3}},
      {true, "Message='Testing Profile '", {1, 3}},
      {false, "Message='testing Profile'", {2, 3}},
      {true, "Message='Testing Profile'", {1, 2, 3, 4}},
      {false, "Message='Testing Profile'", {1, 2, 3, 4}},
      {true, "Action='x'", {}},
      {true, "Action='x' Message='Testing Profile'", {}},
  };
  for (const auto& row : rows) {
    std::string entries;
    for (int id = 1; id <= 4; ++id) entries += EventEntry(id, row.starts, row.attributes);
    EXPECT_EQ(Send(entries), row.dispatched) << row.starts << row.attributes;
  }
}

TEST_F(EventIntakeTest, SkipsWhatIsNotItsOwnOrIncomplete) {
  Configure(Profile(1));
  const std::string mine = "<Profiles>" + EventEntry(1) + "</Profiles></Notify>";
  host_.ClearLog();
  EXPECT_EQ(Send("<Profile ID='1' Action='7'/><Profile ID='1' Alarm='x' Action='7'/>"
                 "<Profile ID='1' Alarm='1'/>" +
                 EventEntry(9)),
            Ids{});
  EXPECT_EQ(Send("", "<Notify ID='786433'>" + mine + "<Notify>" + mine + "<Notify ID='786432'/>"),
            Ids{});
  EXPECT_EQ(host_.Log(), (std::vector<LogLine>{{25,
                                                "Received a notification request for an unknown "
                                                "profile 9. Request will be ignored"}}));
  // The entry's name does not matter, nor how much of an alarm it is.
  EXPECT_EQ(Send("<Anything ID='1' Alarm='5' Action='7'/>",
                 "<Notify ID='786432'/><Notify ID='786432'>" + mine),
            (Ids{1, 1}));
  EXPECT_EQ(last_->eventSeconds, wall_) << "when the document does not say";
}

TEST_F(EventIntakeTest, FillsTheItemFromProfileConfigurationAndDocument) {
  TakeSystem(test::TwoCameras());
  Configure(Profile(1, "MaxVideoSeconds='30'", "<to>t@x</to><body>{source}</body>") + Profile(2),
            "EmailSizeLimitMB='3'");
  const auto config = state_->config;
  const char* const servers =
      "<Servers><Server Serial='S' Description='D' MAC='M'/><Server Serial='other'/></Servers>";
  ASSERT_EQ(
      Send(EventEntry(1, true, "", SourceElement(Source(3)) + SourceElement(Source(2)) + kGroup),
           servers),
      (Ids{1}));
  const auto item = last_;
  EXPECT_EQ(item->config, config);
  EXPECT_EQ(item->profile, &config->profiles.at(1));
  EXPECT_EQ(item->eventSeconds, 1500000000);
  EXPECT_EQ(item->facts.eventTime, 1500000000);
  EXPECT_EQ(item->eventMilliseconds, 250);
  EXPECT_EQ(item->preTriggerSeconds, 5);
  EXPECT_EQ(item->source.value, static_cast<std::uint32_t>(Source(3)));
  EXPECT_EQ(item->facts.eventType, 2);
  EXPECT_EQ(item->facts.sourceName + item->facts.eventState, "YardStart");
  EXPECT_EQ(item->facts.systemName + item->facts.serial + item->facts.macAddress, "DSM");
  EXPECT_EQ(item->cameras.size(), 2u) << "also without attachments";
  // What a later document does not say stays; what a later configuration says does not reach back.
  Configure(Profile(1) + Profile(2));
  EXPECT_EQ(item->profile->body, "{source}");
  Send(EventEntry(2, false, "Action='1'") + EventEntry(2),
       "<Servers><Server Description='E'/></Servers>");
  EXPECT_EQ(last_->facts.systemName + last_->facts.macAddress + last_->facts.eventState, "")
      << "no placeholder needs them";
  EXPECT_EQ(last_->facts.serial + state_->macAddress + state_->description, "SME");
  // The first of the server elements counts, and of each element the text, empty or not.
  Send(EventEntry(2), "<Servers><Server Serial=''/></Servers>");
  EXPECT_EQ(last_->facts.serial, "");
}

TEST_F(EventIntakeTest, TheProfileLineSaysWhatSetItOff) {
  TakeSystem(test::TwoCameras());
  const std::string both = SourceElement(Source(2)) + SourceElement(Source(3), 18);
  const std::string intro = "Profile Door: PreTrigger(5), MaxDuration(0), MaxSizeMB(10)";
  const struct {
    std::string attributes, sources, line;
  } rows[] = {
      {"", both, intro + ", event source (Gate), event source (Yard), event state (Start)"},
      {"", kGroup, intro + ",  event source group (Perimeter), event state (Start)"},
      {"", "", intro + ", event source (Unknown), event state (Start)"},
      {"Alarm='0' Action='9'", kGroup + both,
       "Profile Door: PreTrigger(0), MaxDuration(0), MaxSizeMB(10), event source (Gate), event "
       "source (Yard), event state (End)"},
  };
  Configure(Profile(1, "description='Door' EventEdge='2'"));
  for (const auto& row : rows) {
    const bool starts = row.attributes.empty();
    EXPECT_EQ(Send(EventEntry(1, starts, starts ? "" : "Action='9'", row.sources)), (Ids{1}));
    EXPECT_EQ(host_.Log().back(), (LogLine{25, row.line}));
  }
  Configure(Profile(1, "description='" + std::string(600, 'x') + "'"));
  Send(EventEntry(1));
  EXPECT_EQ(host_.Log().back().text, "Profile " + std::string(492, 'x'));
}

TEST_F(EventIntakeTest, TestMessagesHaveNoSource) {
  TakeSystem(test::TwoCameras());
  Configure(Profile(1, "attach='1'"));
  ASSERT_EQ(Send(EventEntry(1, true, "Message='Testing Profile'", kGroup)), (Ids{1}));
  EXPECT_TRUE(last_->isTest);
  EXPECT_EQ(last_->facts.eventType, -1);
  EXPECT_EQ(last_->facts.sourceName, "[Test Event Source]");
  EXPECT_EQ(last_->source.value, 0xFFFFFFFFu);
  EXPECT_TRUE(last_->cameras.empty() && last_->videos.empty());
}

TEST_F(EventIntakeTest, ThrottlesEachProfileByItsInterval) {
  const char* const test = "Message='Testing Profile'";
  const struct {
    std::uint32_t later;  // milliseconds
    std::int32_t interval;
    const char* attributes;
    bool due;
  } rows[] = {
      {0, 10, "", true},
      {9999, 10, "", false},
      {1, 10, "", true},  // what was throttled did not move the time
      {5000, 10, test, false},
      {0, 20, "", true},  // a new interval starts anew
      {19999, 20, "", false},
      {1, 20, "Alarm='0'", false},  // not due anyhow: it starts nothing
      {0, 20, "", true},
      {0, 0, "", true},
      {0, 0, "", true},
      {0, 2147483647, "", true},
      {0x7FFFFFFF, 2147483647, "", false},
      {0, 10, "", true},
      {0x80000000u, 0, "tick", false},
      {0x80000000u, 10, "", true},  // a turn of the clock later
      {0, -5, "", true},
      {0, -5, "", true},
  };
  tick_ = 0xFFFFFFFF - 5000;  // the clock wraps in between
  int number = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(number++);
    tick_ += row.later;
    if (std::string(row.attributes) == "tick") {
      state_->throttle.Advance(tick_);
      continue;
    }
    Configure(Profile(1, "ThrottleSeconds='" + std::to_string(row.interval) + "'") +
              Profile(2, "ThrottleSeconds='9'"));
    const bool starts = std::string(row.attributes) != "Alarm='0'";
    EXPECT_EQ(Send(EventEntry(1, starts, starts ? row.attributes : "")), row.due ? Ids{1} : Ids{});
  }
  EXPECT_EQ(Send(EventEntry(2)), (Ids{2})) << "each on its own";
}

class ParkingTest : public test::IntakeFixture {
 protected:
  ParkingTest() {
    TakeSystem(test::TwoCameras());
    Configure(Video(1, 0) + Video(2, 1) + Video(3, 2) + Video(4, 9) + Video(5, 2, 0) + Profile(6));
    Frame(Source(2));
    Frame(Source(3));
    host_.ClearLog();
  }

  static std::string Video(int id, int edge, int seconds = 30) {
    return Profile(id, "attach='1' EventEdge='" + std::to_string(edge) + "' MaxVideoSeconds='" +
                           std::to_string(seconds) + "'");
  }

  // An event at another time than the ones before, so that it is not the same one.
  static std::string Later(std::int32_t profile, bool starts, std::uint32_t source = Source(2)) {
    return EventEntry(profile, starts, "Time='1500000009'", SourceElement(source));
  }

  std::size_t Waiting() const { return state_->parked.Waiting().size(); }
};

TEST_F(ParkingTest, WaitsForItsDeadlineAndNoLonger) {
  EXPECT_EQ(Send(EventEntry(1)), Ids{});
  EXPECT_EQ(Tick(5), Ids{});
  EXPECT_EQ(Send(Later(3, true, Source(3))), Ids{});
  EXPECT_EQ(Tick(27), Ids{}) << "the deadline itself is still in time";
  EXPECT_EQ(Waiting(), 2u);
  EXPECT_EQ(Tick(1), (Ids{1}));
  ASSERT_EQ(last_->videos.size(), 1u);
  EXPECT_EQ(last_->videos[0].name, "Gate");
  EXPECT_TRUE(last_->videos[0].clip->Complete());
  EXPECT_EQ(Tick(4), Ids{});
  EXPECT_EQ(Tick(1), (Ids{3}));
  EXPECT_EQ(Tick(100), Ids{});
}

TEST_F(ParkingTest, TheFrameThatCompletesTheLastClipDispatches) {
  Send(EventEntry(1, true, "", kGroup));
  EXPECT_EQ(Waiting(), 1u);
  tick_ += 30'000;
  EXPECT_TRUE(Frame(Source(2)));
  EXPECT_EQ(Dispatched(), Ids{}) << "the other camera's clip is still open";
  EXPECT_TRUE(Frame(Source(3)));
  EXPECT_EQ(Dispatched(), (Ids{1}));
  EXPECT_EQ(last_->videos.at(0).name + last_->videos.at(1).name, "GateYard");
  EXPECT_EQ(Waiting(), 0u);
  Frame(Source(3));
  EXPECT_EQ(Dispatched(), Ids{});
}

TEST_F(ParkingTest, DispatchesInTheOrderOfReadiness) {
  Send(EventEntry(3));
  // At once what has no video; then what this event releases, and what has its clip already.
  EXPECT_EQ(Send(Later(5, true) + Later(6, true)), (Ids{6, 3, 5}));
  Send(EventEntry(3) + EventEntry(1));
  EXPECT_EQ(Tick(100), (Ids{3, 1}));
}

TEST_F(ParkingTest, OnlySourcesWithVideoAreCaptured) {
  for (const int type : {1, 2, 9, 18}) {
    EXPECT_EQ(Send(EventEntry(1, true, "", SourceElement(Source(2), type))), Ids{}) << type;
  }
  EXPECT_EQ(Tick(100).size(), 4u);
  EXPECT_EQ(Send(EventEntry(1, true, "", SourceElement(Source(2), 3))), (Ids{1}));
  EXPECT_EQ(Send(EventEntry(1, true, "", SourceElement(769, 3) + SourceElement(Source(2)))), Ids{});
  EXPECT_EQ(Tick(100), (Ids{1}));
  EXPECT_EQ(last_->videos.size() + last_->cameras.size(), 2u);
}

TEST_F(ParkingTest, WithoutAnyFrameTheMailGoesOutAtOnce) {
  EXPECT_EQ(Send(EventEntry(1, true, "", SourceElement(0xF0000007))), (Ids{1}));  // unknown
  ASSERT_EQ(last_->videos.size(), 1u);
  EXPECT_EQ(last_->videos[0].clip, nullptr);
  const auto log = host_.Log();
  ASSERT_EQ(log.size(), 3u);
  EXPECT_EQ(log[0],
            (LogLine{50, "Unable to map video input to stream/ channel id to locate video frame"}));
  EXPECT_EQ(log[1], (LogLine{50,
                             "Unable to locate corresponding video frame for channel/stream id "
                             "-268435449 to attach to this notification profile"}));
  // One of two cameras has frames.
  Send(EventEntry(1, true, "", SourceElement(Source(2)) + SourceElement(66561)));
  EXPECT_EQ(Waiting(), 1u);
}

TEST_F(ParkingTest, ASilentStreamKeepsNoFinishedClips) {
  for (int i = 0; i < 3; ++i) {
    Send(EventEntry(1));
    EXPECT_EQ(Tick(100), (Ids{1}));
  }
  EXPECT_EQ(state_->buffers.FindChannel(Source(2))->OpenClips(), 0u);
}

TEST_F(ParkingTest, ALaterEventOfTheSourceReleasesByTheProfilesEdge) {
  const struct {
    std::int32_t profile;
    bool parkedByStart;
    bool laterIsStart;
    bool released;
  } rows[] = {{1, true, false, true},   {1, true, true, false}, {2, false, true, true},
              {2, false, false, false}, {3, true, true, true},  {3, true, false, true}};
  for (const auto& row : rows) {
    Send(EventEntry(row.profile, row.parkedByStart));
    EXPECT_EQ(Send(Later(6, row.laterIsStart, Source(3)) + EventEntry(6, row.laterIsStart, "", "")),
              row.laterIsStart ? (Ids{6, 6}) : Ids{})
        << "another source, or none";
    ASSERT_EQ(Waiting(), 1u);
    // Even an event of an unknown profile, or without an action.
    const std::string later = EventEntry(99, row.laterIsStart, "Time='1500000009' Action='x'");
    EXPECT_EQ(Send(later), row.released ? Ids{row.profile} : Ids{});
    Tick(1000);
  }
  Send(EventEntry(3, true, "", ""));
  EXPECT_EQ(Waiting(), 0u) << "without a source there is no video";
}

TEST_F(ParkingTest, ProfilesOfOneEventDoNotReleaseEachOther) {
  EXPECT_EQ(Send(EventEntry(3) + EventEntry(3)), Ids{});
  EXPECT_EQ(Waiting(), 2u);
}

TEST_F(ParkingTest, SecondReviewerModeOmitsAttachments) {
  EXPECT_TRUE(TakeSystem(test::TwoCameras() + "<Users><SecondReviewer Enabled='1'/></Users>"));
  NotifyConfig config = *state_->config;  // whatever put it there
  config.profiles.at(1).attach = true;
  ReplaceConfig(std::move(config), *state_);
  host_.ClearLog();
  EXPECT_EQ(Send(EventEntry(1)), (Ids{1}));
  EXPECT_TRUE(last_->videos.empty());
  EXPECT_EQ(last_->cameras.size(), 1u);
  EXPECT_EQ(host_.Log()[0], (LogLine{50, "Attachments will be omitted for \"Profile 1\""}));
  EXPECT_EQ(Send(EventEntry(6)), (Ids{6}));
  EXPECT_EQ(host_.Logged("Attachments will be omitted for \"Profile 6\""), 0);
}

TEST_F(ParkingTest, EveryFrameComesBackWhateverIsParkedAtTheEnd) {
  Send(EventEntry(1) + EventEntry(3, true, "", kGroup));
  tick_ += 1000;
  for (int i = 0; i < 20; ++i) Frame(Source(i % 2 == 0 ? 2 : 3), i % 5 == 0);
  EXPECT_EQ(Waiting(), 2u);
  EXPECT_GT(host_.FramesOut(), 2u);
}

}  // namespace
}  // namespace tvx
