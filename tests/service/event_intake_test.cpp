#include "service/event_intake.h"

#include <gtest/gtest.h>

#include <string>

#include "service/intake_fixture.h"

namespace tvx {
namespace {

class EventIntakeTest : public test::IntakeFixture {};

TEST_F(EventIntakeTest, DispatchesWhatIsDueByItsEdge) {
  AddProfile(1, event_edge::kStart);
  AddProfile(2, event_edge::kEnd);
  AddProfile(3, event_edge::kBoth);
  AddProfile(4, 9);
  Send(Entry(1, true) + Entry(2, true) + Entry(3, true) + Entry(4, true));
  EXPECT_EQ(Dispatched(), (Ids{1, 3}));
  Send(Entry(1, false) + Entry(2, false) + Entry(3, false) + Entry(4, false));
  EXPECT_EQ(Dispatched(), (Ids{2, 3}));
}

TEST_F(EventIntakeTest, SkipsWhatIsNotItsOwnOrIncomplete) {
  AddProfile(1);
  Send(
      "<Profile ID='1' Action='7'/><Profile ID='1' Alarm='1'/>"
      "<Profile ID='1' Alarm='1' Action='x'/>");
  Send(Entry(9, true));
  const std::string foreign = "<Notify ID='786433'><Profiles>" + Entry(1, true) +
                              "</Profiles></Notify><Notify><Profiles>" + Entry(1, true) +
                              "</Profiles></Notify><Notify ID='786432'/>";
  Send("", foreign);
  EXPECT_EQ(Dispatched(), Ids{});
  EXPECT_EQ(
      host_.Log(),
      (std::vector<test::LogLine>{{25,
                                   "Received a notification request for an unknown profile 9. "
                                   "Request will be ignored"}}));
  Send("<Anything ID='1' Alarm='1' Action='7'/>");  // the entry's name does not matter
  EXPECT_EQ(Dispatched(), (Ids{1}));
}

TEST_F(EventIntakeTest, FillsTheItemFromProfileConfigurationAndDocument) {
  TakeSystem(test::kTwoCameras);
  AddProfile(1, event_edge::kStart, [](NotifyProfile& profile) {
    profile.usesPlaceholders = true;
    profile.MaxVideoSeconds = 30;
  });
  Configure([](NotifyConfig& config) { config.EmailSizeLimitMB = 3; });
  const auto config = state_.config;
  Send(Entry(1, true),
       "<Servers><Server Serial='S' Description='D' MAC='M'/>"
       "<Server Serial='other'/></Servers>");
  ASSERT_EQ(Dispatched(), (Ids{1}));
  const auto held = last_;
  const NotifyWorkItem& item = *held;
  EXPECT_EQ(item.config, config);
  EXPECT_EQ(item.profile, &config->profiles.at(1));
  EXPECT_EQ(item.eventSeconds, 1500000000);
  EXPECT_EQ(item.eventMilliseconds, 250);
  EXPECT_EQ(item.preTriggerSeconds, 5);
  EXPECT_EQ(item.facts.sourceName, "Gate");
  EXPECT_EQ(item.facts.eventState, "Start");
  EXPECT_EQ(item.facts.systemName + item.facts.serial + item.facts.macAddress, "DSM");
  EXPECT_EQ(item.cameras, (std::vector<SourceId>{{test::kGate}}));  // also without attachments
  EXPECT_EQ(host_.Log().back(),
            (test::LogLine{25,
                           "Profile Profile 1: PreTrigger(5), MaxDuration(30), MaxSizeMB(3), "
                           "event source (Gate), event state (Start)"}));
  // What a later document does not say stays; what a later configuration says does not reach back.
  Configure(1, [](NotifyProfile& profile) { profile.body = "new"; });
  EXPECT_EQ(item.profile->body, "b");
  Send(Entry(1, true), "<Servers><Server Description='E'/></Servers>");
  Dispatched();
  EXPECT_EQ(last_->facts.systemName + last_->facts.serial, "ES");
}

TEST_F(EventIntakeTest, TheProfileLineNamesGroupsAndIsCut) {
  TakeSystem(test::kTwoCameras);
  AddProfile(1);
  Send(Entry(1, false));
  Send(Entry(1, true, "", "<SourceGroup ID='3'/>"));
  EXPECT_EQ(host_.Log().back().text,
            "Profile Profile 1: PreTrigger(5), MaxDuration(0), MaxSizeMB(10),  event source group "
            "(Perimeter), event state (Start)");
  EXPECT_EQ(dispatched_.back()->cameras, (std::vector<SourceId>{{test::kGate}, {test::kYard}}));
  Configure(1, [](NotifyProfile& profile) { profile.description = std::string(600, 'x'); });
  Send(Entry(1, true));
  EXPECT_EQ(host_.Log().back().text, "Profile " + std::string(492, 'x'));
}

TEST_F(EventIntakeTest, TestMessagesAreAlwaysDueAndSaySo) {
  TakeSystem(test::kTwoCameras);
  AddProfile(1, event_edge::kEnd, [](NotifyProfile& profile) { profile.attach = true; });
  Send(Entry(1, true, "Message='Testing Profile '"));
  EXPECT_EQ(Dispatched(), Ids{});
  Send(Entry(1, true, "Message='Testing Profile'"));
  ASSERT_EQ(Dispatched(), (Ids{1}));
  EXPECT_TRUE(last_->isTest);
  EXPECT_EQ(last_->facts.eventType, -1);
  EXPECT_EQ(last_->facts.sourceName, "[Test Event Source]");
  EXPECT_EQ(last_->source.value, 0xFFFFFFFFu);
  EXPECT_TRUE(last_->cameras.empty());
  EXPECT_TRUE(last_->videos.empty());
}

TEST_F(EventIntakeTest, ThrottlesEachProfileByItsInterval) {
  AddProfile(1);
  const auto setInterval = [&](std::int32_t seconds) {
    Configure(1, [&](NotifyProfile& profile) { profile.ThrottleSeconds = seconds; });
  };
  setInterval(10);
  tick_ = 0xFFFFFFFF - 5000;  // the clock wraps in between
  const auto dueAfter = [&](std::uint32_t milliseconds, const std::string& attributes = "") {
    tick_ += milliseconds;
    Send(Entry(1, true, attributes));
    return Dispatched().size();
  };
  EXPECT_EQ(dueAfter(0), 1u);
  EXPECT_EQ(dueAfter(9999), 0u);
  EXPECT_EQ(dueAfter(1), 1u);  // the throttled one did not move the time
  EXPECT_EQ(dueAfter(5000, "Message='Testing Profile'"), 0u);
  setInterval(20);
  EXPECT_EQ(dueAfter(0), 1u);  // a new interval starts anew
  EXPECT_EQ(dueAfter(19999), 0u);
  setInterval(0);
  EXPECT_EQ(dueAfter(0) + dueAfter(0), 2u);
  setInterval(2147483647);
  EXPECT_EQ(dueAfter(0) + dueAfter(0x7FFFFFFF), 1u);
  setInterval(10);
  EXPECT_EQ(dueAfter(0), 1u);
  state_.throttle.Advance(tick_ + 0x80000000u);
  EXPECT_EQ(dueAfter(5000), 1u);  // a turn of the clock and five seconds later
}

class ParkingTest : public test::IntakeFixture {
 protected:
  ParkingTest() {
    TakeSystem(test::kTwoCameras);
    AddVideoProfile(1, event_edge::kStart);
    AddVideoProfile(2, event_edge::kEnd);
    AddVideoProfile(3, event_edge::kBoth);
    Frame(test::kGate);
    Frame(test::kYard);
  }
  ~ParkingTest() override { EXPECT_TRUE(host_.MalformedRequests().empty()); }

  void AddVideoProfile(std::int32_t id, std::int32_t edge) {
    AddProfile(id, edge, [](NotifyProfile& profile) {
      profile.attach = true;
      profile.MaxVideoSeconds = 30;
    });
  }

  // An event at another time than the ones before, so that it is not the same one.
  std::string Later(std::int32_t profile, bool start, std::int32_t source = test::kGate) {
    return "<Profile ID='" + std::to_string(profile) + "' Alarm='" + (start ? "1" : "0") +
           "' Action='7' Time='1500000009'><EventSource ID='" + std::to_string(source) +
           "' Type='2'/></Profile>";
  }

  std::size_t Waiting() const { return state_.parked.Waiting().size(); }
};

TEST_F(ParkingTest, WaitsForItsDeadlineAndNoLonger) {
  Send(Entry(1, true));
  EXPECT_EQ(Dispatched(), Ids{});
  EXPECT_EQ(Waiting(), 1u);
  wall_ += 32;
  Tick();
  EXPECT_EQ(Dispatched(), Ids{});  // the deadline itself is still in time
  wall_ += 1;
  Tick();
  EXPECT_EQ(Dispatched(), (Ids{1}));
  ASSERT_EQ(last_->videos.size(), 1u);
  EXPECT_EQ(last_->videos[0].name, "Gate");
  EXPECT_TRUE(last_->videos[0].clip->Complete());
}

TEST_F(ParkingTest, TheFrameThatCompletesTheLastClipDispatches) {
  Send(Entry(1, true, "", "<SourceGroup ID='3'/>"));
  EXPECT_EQ(Waiting(), 1u);
  tick_ += 30'000;
  EXPECT_TRUE(Frame(test::kGate));
  EXPECT_EQ(Dispatched(), Ids{});  // the other camera's clip is still open
  EXPECT_TRUE(Frame(test::kYard));
  EXPECT_EQ(Dispatched(), (Ids{1}));
  EXPECT_EQ(Waiting(), 0u);
}

TEST_F(ParkingTest, ClipsThatAreCompleteAtOnceDoNotWait) {
  Configure(1, [](NotifyProfile& profile) { profile.MaxVideoSeconds = 0; });
  Send(Entry(1, true));
  EXPECT_EQ(Dispatched(), (Ids{1}));
}

TEST_F(ParkingTest, WithoutAnyFrameTheMailGoesOutAtOnce) {
  Send(Entry(1, true, "", "<EventSource ID='66561' Type='2'/>"));  // a camera nobody knows
  EXPECT_EQ(Dispatched(), (Ids{1}));
  ASSERT_EQ(last_->videos.size(), 1u);
  EXPECT_EQ(last_->videos[0].clip, nullptr);
  EXPECT_EQ(host_.Logged("Unable to map video input to stream/ channel id to locate video frame"),
            1);
  EXPECT_EQ(host_.Logged("Unable to locate corresponding video frame for channel/stream id 66561 "
                         "to attach to this notification profile"),
            1);
  Send(Entry(1, true, "", "<EventSource ID='66049' Type='3'/>"));  // no video event
  EXPECT_EQ(Dispatched(), (Ids{1}));
}

TEST_F(ParkingTest, ASilentStreamKeepsNoFinishedClips) {
  for (int i = 0; i < 3; ++i) {
    Send(Entry(1, true));
    wall_ += 100;
    Tick();
  }
  EXPECT_EQ(Dispatched(), (Ids{1, 1, 1}));
  EXPECT_EQ(state_.buffers.FindChannel(test::kGate)->OpenClips(), 0u);
}

TEST_F(ParkingTest, ALaterEventOfTheSourceReleasesByTheProfilesEdge) {
  struct Case {
    std::int32_t profile;
    bool parkedByStart;
    bool laterIsStart;
    bool released;
  };
  for (const Case& c :
       {Case{1, true, false, true}, Case{1, true, true, false}, Case{2, false, true, true},
        Case{2, false, false, false}, Case{3, true, true, true}, Case{3, true, false, true}}) {
    Send(Entry(c.profile, c.parkedByStart));
    ASSERT_EQ(Waiting(), 1u);
    Send(Later(99, c.laterIsStart, test::kYard));  // another source releases nothing
    EXPECT_EQ(Waiting(), 1u);
    Send(Later(99, c.laterIsStart));  // even an event of an unknown profile does
    EXPECT_EQ(Dispatched(), c.released ? Ids{c.profile} : Ids{}) << c.profile << c.laterIsStart;
    wall_ += 1000;
    Tick();
    Dispatched();
  }
}

TEST_F(ParkingTest, ProfilesOfOneEventDoNotReleaseEachOther) {
  AddVideoProfile(4, event_edge::kBoth);
  Send(Entry(3, true) + Entry(4, true));
  EXPECT_EQ(Dispatched(), Ids{});
  EXPECT_EQ(Waiting(), 2u);
}

TEST_F(ParkingTest, SecondReviewerModeOmitsAttachments) {
  TakeSystem("<Users><SecondReviewer Enabled='1'/></Users>");
  EXPECT_TRUE(saveDue_);
  // Whatever put it there.
  Configure(1, [](NotifyProfile& profile) { profile.attach = true; });
  host_.ClearLog();
  Send(Entry(1, true));
  EXPECT_EQ(Dispatched(), (Ids{1}));
  EXPECT_TRUE(last_->videos.empty());
  EXPECT_EQ(host_.Log()[0], (test::LogLine{50, "Attachments will be omitted for \"Profile 1\""}));
}

TEST_F(ParkingTest, EveryFrameComesBackOnceWhateverIsParkedAtTheEnd) {
  Send(Entry(1, true) + Entry(3, true, "", "<SourceGroup ID='3'/>"));
  tick_ += 1000;
  int taken = 2;
  for (int i = 0; i < 20; ++i) taken += Frame(i % 2 == 0 ? test::kGate : test::kYard, i % 5 == 0);
  EXPECT_EQ(Waiting(), 2u);
  state_.~ServiceState();
  EXPECT_EQ(host_.ReleasedFrames().size(), static_cast<std::size_t>(taken));
  new (&state_) ServiceState(&test::FakeHost::Entry);
}

}  // namespace
}  // namespace tvx
