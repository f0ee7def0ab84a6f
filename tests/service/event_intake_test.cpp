#include "service/event_intake.h"

#include <gtest/gtest.h>

#include <sstream>
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

class EventIntakeTest : public test::IntakeFixture {
 protected:
  EventIntakeTest() {
    TakeSystem(test::TwoCameras());
    Configure(Video(1, 0) + Video(2, 1) + Video(3, 2) + Video(4, 9) + Video(5, 2, 0) + Profile(6) +
              Profile(7, "EventEdge='1'") + Profile(8, "EventEdge='2' ThrottleSeconds='10'"));
    Reset();
  }

  static std::string Video(int id, int edge, int seconds = 30) {
    return Profile(id, "attach='1' EventEdge='" + std::to_string(edge) + "' MaxVideoSeconds='" +
                           std::to_string(seconds) + "'");
  }

  // Dispatches what is parked, and forgets who was throttled.
  void Reset() {
    Tick(1000);
    state_->throttle = Throttle();
    Frame(Source(2));
    Frame(Source(3));
    host_.ClearLog();
  }

  // Plays steps, and gives the profiles that each of them dispatches.
  //
  //   1+  2-  6t    an event document: profile and start, end or test message; several with commas.
  //                 It is one of the gate camera, unless "y" for the yard camera, "g" for both as a
  //                 group, "n" for no source or "i" for an input follows; "'" is a later time.
  //   fg  fy        a frame of the gate's or yard's stream
  //   s5  m30000    time passes: seconds up to a tick of the host, milliseconds
  std::string Play(const std::string& steps) {
    std::string dispatched;
    std::istringstream words(steps);
    for (std::string word; words >> word;) {
      Ids ids;
      if (word[0] == 'f') {
        Frame(Source(word[1] == 'g' ? 2 : 3));
        ids = Dispatched();
      } else if (word[0] == 's') {
        ids = Tick(std::stoi(word.substr(1)));
      } else if (word[0] == 'm') {
        tick_ += static_cast<std::uint32_t>(std::stoul(word.substr(1)));
      } else {
        std::string entries;
        std::istringstream list(word);
        for (std::string entry; std::getline(list, entry, ',');) entries += Entry(entry);
        ids = Send(entries);
      }
      for (const std::int32_t id : ids) dispatched += std::to_string(id);
      dispatched += ids.empty() ? "- " : " ";
    }
    return dispatched.substr(0, dispatched.size() - 1);
  }

  static std::string Entry(const std::string& text) {
    const auto has = [&](char mark) { return text.find(mark) != std::string::npos; };
    std::string attributes = has('\'') ? "Time='1500000009'" : "";
    if (has('t')) attributes += " Message='Testing Profile'";
    return EventEntry(text[0] - '0', !has('-'), attributes,
                      has('n')   ? ""
                      : has('g') ? kGroup
                      : has('i') ? SourceElement(769, 3)
                                 : SourceElement(Source(has('y') ? 3 : 2)));
  }
};

TEST_F(EventIntakeTest, DispatchesParksAndReleases) {
  const struct {
    const char *why, *steps, *dispatched;
  } rows[] = {
      {"by the profile's edge", "6+,7+,8+ m10000 6-,7-,8-", "68 - 78"},
      {"an edge of no meaning", "4+n,4-n", "-"},
      {"tests always", "6t,7t,8t,4t 6-t,7-t,4-t", "6784 674"},
      {"but for the throttle", "8+ 8- 8t m9999 8+ m1 8- 8t", "8 - - - - - 8 -"},
      {"what is not due starts no interval", "7+ 6- 8+,6+", "- - 86"},
      {"at the first tick behind the deadline", "1+ s5 3+y s27 s1 s4 s1 s99", "- - - - 1 - 3 -"},
      {"when the last clip is complete", "1+g m30000 fg fy fy", "- - - 1 -"},
      {"at once without video", "1+n 1+i 2-i", "1 1 2"},
      {"at once when nothing is to be recorded", "5+ 5-y", "5 5"},
      {"at once what has no video, then what is ready, in order", "3+,2- 5+',6+'", "- 6325"},
      {"in the order of the events", "3+,1+y s99", "- 31"},
      {"the end releases a start", "1+ 9-'", "- 1"},
      {"another start does not", "1+ 9+' s99", "- - 1"},
      {"the start releases an end", "2- 9+'", "- 2"},
      {"another end does not", "2- 9-' s99", "- - 2"},
      {"either releases what wants both", "3+ 9+' 3- 9+'", "- 3 - 3"},
      {"as does the end", "3+ 9-'", "- 3"},
      {"only of the same source", "3+ 9-y' 9-n' 9-g' s99", "- - - - 3"},
      {"a group is a source", "3+g 9-' 9-g'", "- - 3"},
      {"one of several", "3+ 3+y' 1+y' 9-y'", "- - 3 1"},
      {"several in their order", "3+,1+ 3+y 9-' s99", "- - 31 3"},
      {"not what the document itself parked", "3+,2-,9+,9- s99", "- 32"},
      {"but another document of the same time", "3+,2- 9+", "- 32"},
  };
  tick_ = 0xFFFFFFFF - 5000;  // the clock wraps meanwhile
  for (const auto& row : rows) {
    EXPECT_EQ(Play(row.steps), row.dispatched) << row.why;
    Reset();
  }
  EXPECT_EQ(state_->buffers.FindChannel(Source(2))->OpenClips(), 0u);
}

TEST_F(EventIntakeTest, SkipsWhatIsNotItsOwnOrIncomplete) {
  const std::string mine = "<Profiles>" + EventEntry(6) + "</Profiles></Notify>";
  const struct {
    std::string entries, elements;
    Ids dispatched;
  } rows[] = {
      {"<Profile ID='6' Action='7'/><Profile ID='6' Alarm='x' Action='7'/>", "", {}},
      {EventEntry(6, true, "Action='x'") +
           EventEntry(6, true, "Action='' Message='Testing Profile'"),
       "",
       {}},
      {EventEntry(7, true, "Message='Testing Profile '"), "", {}},
      {"", "<Notify ID='786433'>" + mine + "<Notify>" + mine + "<Notify ID='786432'/>", {}},
      {"<Anything ID='6' Alarm='5' Action='7'/>",
       "<Notify ID='786432'/><Notify ID='786432'>" + mine,
       {6, 6}},
  };
  for (const auto& row : rows) EXPECT_EQ(Send(row.entries, row.elements), row.dispatched);
  EXPECT_EQ(last_->eventSeconds, wall_) << "when the document does not say";
  EXPECT_TRUE(last_->isStart);
  host_.ClearLog();
  Play("3+");
  Send(EventEntry(9, false, "Time='1' Action='x'"));
  EXPECT_EQ(Dispatched(), Ids{}) << "it was released at once, though nobody is told of the other";
  EXPECT_EQ(last_->profile->ID, 3);
  EXPECT_EQ(host_.Log().back(), (LogLine{25,
                                         "Received a notification request for an unknown profile "
                                         "9. Request will be ignored"}));
}

TEST_F(EventIntakeTest, FillsTheItemFromProfileConfigurationAndDocument) {
  Configure(Profile(11, "MaxVideoSeconds='30'", "<to>t@x</to><body>{source}</body>") + Profile(12));
  const auto config = state_->config;
  const char* const servers =
      "<Servers><Server Serial='S' Description='D' MAC='M'/><Server Serial='other'/></Servers>";
  const std::string sources = SourceElement(Source(3)) + SourceElement(769, 3) + kGroup;
  ASSERT_EQ(Send(EventEntry(11, true, "", sources), servers), (Ids{11}));
  const auto item = last_;
  EXPECT_EQ(item->config, config);
  EXPECT_EQ(item->profile, &config->profiles.at(11));
  EXPECT_EQ(item->eventSeconds + item->facts.eventTime, 3000000000);
  EXPECT_EQ(item->eventMilliseconds, 250);
  EXPECT_EQ(item->preTriggerSeconds, 5);
  EXPECT_EQ(item->source.value, static_cast<std::uint32_t>(Source(3)));
  EXPECT_EQ(item->facts.eventType, 2);
  EXPECT_EQ(item->cameras, (std::vector<SourceId>{item->source})) << "also without attachments";
  const auto facts = [&] {
    const TemplateFacts& f = last_->facts;
    const SystemFacts& s = *last_->system;
    return f.sourceName + "," + f.eventState + "," + s.description + "," + s.serial + "," +
           s.macAddress;
  };
  EXPECT_EQ(facts(), "Yard,Start,D,S,M");
  // What a later document does not say stays; what a later configuration says does not reach back.
  Configure(Profile(11, "EventEdge='1'", "<to>t@x</to><body>{event state}</body>") + Profile(12));
  EXPECT_EQ(item->profile->body, "{source}");
  Send(EventEntry(11, false), "<Servers><Server Description='E'/></Servers>");
  EXPECT_EQ(facts(), "Gate,End,E,S,M");
  Send(EventEntry(11, false), "<Servers><Server Serial=''/></Servers>");
  EXPECT_EQ(facts(), "Gate,End,E,,M");
  Send(EventEntry(12), "<Servers><Server Serial='T'/></Servers>");
  EXPECT_EQ(facts(), "Gate,Start,E,T,M");
  Send(EventEntry(12, true, "Message='Testing Profile'", kGroup));
  EXPECT_EQ(facts(), "[Test Event Source],Start,E,T,M");
  EXPECT_TRUE(last_->isTest);
  EXPECT_EQ(last_->facts.eventType, -1);
  EXPECT_EQ(last_->source.value, 0xFFFFFFFFu);
  EXPECT_TRUE(last_->cameras.empty());
}

TEST_F(EventIntakeTest, TheProfileLineSaysWhatSetItOff) {
  const std::string both = SourceElement(Source(2)) + SourceElement(Source(3), 18);
  const std::string intro = "Profile Door: PreTrigger(5), MaxDuration(0), MaxSizeMB(3)";
  const struct {
    bool starts;
    std::string attributes, sources, line;
  } rows[] = {
      {true, "", both, intro + ", event source (Gate), event source (Yard), event state (Start)"},
      {true, "", kGroup, intro + ",  event source group (Perimeter), event state (Start)"},
      {true, "", "", intro + ", event source (Unknown), event state (Start)"},
      {false, "Action='9'", kGroup + SourceElement(769, 3),
       "Profile Door: PreTrigger(0), MaxDuration(0), MaxSizeMB(3), event source (Trigger Input "
       "3-1), event state (End)"},
  };
  Configure(Profile(11, "description='Door' EventEdge='2'"), "EmailSizeLimitMB='3'");
  for (const auto& row : rows) {
    Send(EventEntry(11, row.starts, row.attributes, row.sources));
    EXPECT_EQ(host_.Log().back(), (LogLine{25, row.line}));
  }
  Configure(Profile(11, "description='" + std::string(600, 'x') + "'"));
  Send(EventEntry(11));
  EXPECT_EQ(host_.Log().back().text, "Profile " + std::string(492, 'x'));
}

TEST_F(EventIntakeTest, CapturesEachSourceThatHasVideo) {
  const auto videos = [&](const std::string& sources) {
    Send(EventEntry(1, true, "", sources));
    Tick(100);
    std::string text;
    for (const AttachmentSource& video : last_->videos) {
      EXPECT_TRUE(video.clip == nullptr || video.clip->Complete());
      text += video.name + (video.clip == nullptr ? "? " : " ");
    }
    return text;
  };
  for (const int type : {1, 2, 9, 18}) EXPECT_EQ(videos(SourceElement(Source(2), type)), "Gate ");
  EXPECT_EQ(videos(SourceElement(769, 3) + SourceElement(Source(3))), "Yard ");
  EXPECT_EQ(videos(kGroup), "Gate Yard ");
  host_.ClearLog();
  EXPECT_EQ(videos(SourceElement(0xF0000007)), "Video Input 0-7? ");
  EXPECT_EQ(host_.Log().size(), 3u);
  EXPECT_EQ(host_.Log()[0],
            (LogLine{50, "Unable to map video input to stream/ channel id to locate video frame"}));
  EXPECT_EQ(host_.Log()[1], (LogLine{50,
                                     "Unable to locate corresponding video frame for "
                                     "channel/stream id -268435449 to attach to this notification "
                                     "profile"}));
}

TEST_F(EventIntakeTest, SecondReviewerModeOmitsAttachments) {
  EXPECT_TRUE(TakeSystem(test::TwoCameras() + "<Users><SecondReviewer Enabled='1'/></Users>"));
  NotifyConfig config = *state_->config;  // whatever put it there
  config.profiles.at(1).attach = true;
  ReplaceConfig(std::move(config), *state_);
  EXPECT_EQ(Play("6+ 1+"), "6 1");
  EXPECT_TRUE(last_->videos.empty());
  EXPECT_EQ(last_->cameras.size(), 1u);
  EXPECT_EQ(host_.Log().at(host_.Log().size() - 2),
            (LogLine{50, "Attachments will be omitted for \"Profile 1\""}));
  EXPECT_EQ(host_.Logged("Attachments will be omitted for \"Profile 6\""), 0);
}

TEST_F(EventIntakeTest, EveryFrameComesBackWhateverIsParkedAtTheEnd) {
  EXPECT_EQ(Play("1+,3+g m1000 fg fy fg fy"), "- - - - - -");
  EXPECT_GT(host_.FramesOut(), 4u);
}

TEST_F(EventIntakeTest, TheOldestVideoIsLetGoWhenTooMuchWaits) {
  const LogLine line{50,
                     "More than 256 MB of video wait to be sent. The oldest clips are given up; "
                     "their notifications will be sent without them"};
  const std::uint32_t half = 128u << 20;
  Configure(Video(1, 0) + Video(3, 2), "EmailSizeLimitMB='1000'");
  for (int outage = 1; outage <= 2; ++outage) {
    tick_ += 10'000;  // longer than the time before the event
    Frame(Source(2), true, half - 100);
    Frame(Source(3), true, half - 100);
    EXPECT_EQ(Play("1+ 3+y"), "- -");
    EXPECT_EQ(host_.Logged(line.text), outage - 1);
    Frame(Source(2), false, 1000);
    EXPECT_EQ(Dispatched(), (Ids{1})) << "there is nothing more to wait for";
    EXPECT_TRUE(last_->videos.at(0).clip->WasLetGo());
    EXPECT_EQ(host_.Log().back(), line);
    EXPECT_EQ(Play("1+"), "3") << "the next oldest, for the same frames again";
    EXPECT_TRUE(last_->videos.at(0).clip->WasLetGo());
    EXPECT_EQ(Play("s99"), "1");
    EXPECT_FALSE(last_->videos.at(0).clip->WasLetGo());
    last_.reset();
    Frame(Source(2));
    Frame(Source(2));
  }
  EXPECT_EQ(host_.Logged(line.text), 2) << "once each";
}

TEST_F(EventIntakeTest, TheOldestNotificationsEndWhenTooManyWait) {
  EXPECT_EQ(Play("3+ 6+n"), "- 6");  // one is parked
  const WorkQueue::Item parked = state_->parked.Waiting().front()->Item();
  WorkQueue queue;
  queue.Enqueue(WorkQueue::Items(19'998, last_));
  const auto ended = [&](WorkQueue::Items dispatched) {
    WorkQueue::Items items;
    Run([&](ServiceState& state, IntakeOutcome& outcome) {
      outcome.dispatched = std::move(dispatched);
      LimitWaitingNotifications(queue, state, outcome);
      items.swap(outcome.ended);
      outcome.dispatched.clear();
      return 0;
    });
    return items;
  };
  const auto first = std::make_shared<NotifyWorkItem>(*last_);
  EXPECT_EQ(ended({first}).size(), 0u) << "as many as may";
  EXPECT_EQ(ended({first, last_}), (WorkQueue::Items{last_})) << "of the queue";
  EXPECT_EQ(queue.Size(), 19'997u);
  WorkQueue::Items taken;
  queue.TakeOldest(20'000, taken);
  EXPECT_EQ(ended(WorkQueue::Items(20'000, first)), (WorkQueue::Items{first}))
      << "of those that go to the queue now";
  EXPECT_EQ(ended(WorkQueue::Items(20'002, first)).size(), 3u);
  queue.Enqueue(WorkQueue::Items(20'000, last_));
  EXPECT_EQ(state_->parked.Size(), 1u);
  EXPECT_EQ(
      host_.Log().back(),
      (LogLine{75,
               "More than 20000 notifications wait to be sent. The oldest ones will not be sent"}));
  EXPECT_EQ(host_.Logged(host_.Log().back().text), 1);
  WorkQueue::Items oldest;
  state_->parked.TakeOldest(9, oldest);
  EXPECT_EQ(oldest, (WorkQueue::Items{parked})) << "what is parked would be last";
  EXPECT_EQ(state_->parked.Size(), 0u);
}

TEST(Throttle, AdmitsEachProfileOnceAnInterval) {
  const std::uint32_t start = 0xFFFFFFFF - 5000;  // the clock wraps in between
  const struct {
    std::uint32_t later;  // milliseconds
    std::int32_t interval;
    bool admitted;
  } rows[] = {
      {0, 10, true},         {9999, 10, false},  // what is refused does not move the time
      {1, 10, true},         {5000, 20, true},   // a new interval starts anew
      {19999, 20, false},    {0, 10, true},
      {0, 0, true},          {0, 0, true},
      {0, -5, true},         {0, -5, true},
      {0, 2147483647, true}, {0x7FFFFFFF, 2147483647, false},
      {0, 3000000, true},    {3000000000, 3000000, true},
  };
  Throttle throttle;
  std::uint32_t now = start;
  for (const auto& row : rows) {
    EXPECT_EQ(throttle.Admit(1, row.interval, now += row.later), row.admitted)
        << now << row.interval;
  }
  EXPECT_TRUE(throttle.Admit(2, 10, now));
  throttle.Advance(now + 0x80000000u);
  EXPECT_TRUE(throttle.Admit(2, 10, now + 5000)) << "a turn of the clock and five seconds later";
}

}  // namespace
}  // namespace tvx
