// The state under the intake mutex, without a service around it: documents, frames and time go in,
// what is dispatched and logged comes out.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "config/xml_document.h"
#include "service/config_change.h"
#include "service/event_intake.h"
#include "service/waiting_limits.h"
#include "support/documents.h"
#include "support/fake_host.h"
#include "support/table.h"

namespace tvx::test {
namespace {

// A source of an event: "g" and "y" are the cameras below, "u" is an unknown one, each with its type
// where that is not 2; "i" an input, "G" the group of both cameras, "n" none.
std::string From(const std::string& mark) {
  if (mark == "n" || mark == "G") return mark == "G" ? "<SourceGroup ID='3'/>" : "";
  const std::uint32_t camera = mark[0] == 'u' ? 0xF0000007 : Source(mark[0] == 'g' ? 2 : 3);
  return "<EventSource ID='" + std::to_string(mark == "i" ? 769 : camera) + "' Type='" +
         (mark == "i"       ? "3"
          : mark.size() > 1 ? mark.substr(1)
                            : "2") +
         "'/>";
}

// Two cameras, Source(2) "Gate" and Source(3) "Yard", which are also the source group 3.
std::string TwoCameras() {
  const auto entry = [](const std::string& number) {
    return "<Entry>" +
           Devices("<Device Number='" + number + "'><Video><Input Number='1'/></Video></Device>") +
           "</Entry>";
  };
  return Devices(Camera(2, "Gate") + Camera(3, "Yard")) + "<Events>" + NotifyingEvent(7, 2) +
         NotifyingEvent(8, 3) + "<SourceGroup ID='3' Name='Perimeter'>" + entry("2") + entry("3") +
         "</SourceGroup></Events>";
}

std::string Attaching(int id, const std::string& attributes) {
  return Profile(id, "attach='1' MaxVideoSeconds='30' " + attributes);
}

class IntakeTest : public testing::Test {
 protected:
  IntakeTest() {
    SetTickClock([this] { return tick_; });
    SetWallClock([this] { return wall_; });
    TakeSystem(TwoCameras());
    Update(Notify(Attaching(1, "EventEdge='0'") + Attaching(2, "EventEdge='1'") +
                  Attaching(3, "EventEdge='2'") + Attaching(4, "EventEdge='9'") +
                  Profile(5, "attach='1' EventEdge='2' MaxVideoSeconds='0'") + Profile(6) +
                  Profile(7, "EventEdge='1' ThrottleSeconds='10'") +
                  Profile(8, "EventEdge='2' ThrottleSeconds='10'")));
    Reset();
  }
  ~IntakeTest() override {
    last_.reset();
    state_.reset();
    SetTickClock(MonotonicTick);
    SetWallClock({});
    EXPECT_EQ(host_.FramesOut(), 0u);
    EXPECT_EQ(host_.Problems(), std::vector<std::string>{});
  }

  static ParsedDocument Parse(const std::string& text) {
    return ParseDocument(text.data(), text.size());
  }
  // Runs an operation and concludes it as the service does. Gives the profiles that it dispatches.
  std::string Run(const std::function<void(ServiceState&, IntakeOutcome&)>& operation) {
    IntakeOutcome outcome;
    const std::uint32_t released = host_.FramesReleased();
    operation(*state_, outcome);
    EXPECT_EQ(host_.FramesReleased(), released) << "a frame went back under the lock";
    outcome.log.Write(&FakeHost::Entry);
    std::string profiles;
    for (const auto& item : outcome.dispatched) {
      profiles += std::to_string(item->profile->ID);
      last_ = item;
    }
    return profiles;
  }

  // A change of the configuration: the profiles that it concerns, or "rejected".
  std::string Update(const std::string& notify) {
    NotifyChange change = ReadNotifyChange(*Parse(Change(notify)).Root(), state_->config);
    std::string profiles = change.isAccepted ? "" : "rejected";
    for (const std::int32_t id : change.affected) profiles += std::to_string(id);
    EXPECT_TRUE(TakeNotifyChange(std::move(change), *state_));
    return profiles;
  }

  // A full system document. True when it makes a save necessary.
  bool TakeSystem(const std::string& elements) {
    bool isSaveDue = false;
    Run([&](auto& state, auto& outcome) {
      isSaveDue = ApplySystemDocument(ReadSystemDocument(*Parse(SystemDocument(elements)).Root()),
                                      state, outcome);
    });
    return isSaveDue;
  }
  std::string Send(const std::string& entries, const std::string& elements = "") {
    return Run([&](auto& state, auto& outcome) {
      ReceiveEvents(ReadEventDocument(*Parse(EventDocument(entries, elements)).Root()), state,
                    outcome);
    });
  }

  std::string Tick(std::int64_t seconds) {
    wall_ += seconds;
    return Run([&](auto& state, auto& outcome) {
      state.parked.ReleaseDue(wall_);
      DispatchReady(state, outcome);
    });
  }

  std::string Frame(std::uint32_t camera, std::uint32_t length = 1, bool isKey = true) {
    const void* const handle = host_.Lend(std::string(std::min(length, 4096u), 'x'));
    const IncomingFrame frame{Source(camera), isKey ? kKeyFrame : 0u, 0, handle, length};
    const std::string profiles = Run([&](auto& state, auto& outcome) {
      isTaken_ = state.buffers.TakeFrame(frame, outcome.dropped);
      LimitWaitingVideo(state, outcome);
      if (isTaken_) DispatchReady(state, outcome);
    });
    if (!isTaken_) host_.TakeBack(frame.handle);
    return profiles;
  }

  // Dispatches what is parked, and forgets who was throttled.
  void Reset() {
    Tick(1000);
    state_->throttle = Throttle();
    Frame(2);
    Frame(3);
    host_.ClearLog();
  }

  // Plays steps, and gives the profiles that each of them dispatches.
  //
  //   1+  2-  6t    an event document: profile and start, end or test message; several with commas.
  //                 It is one of the gate camera, unless another mark of a source follows;
  //                 "'" is a later time.
  //   fg  fy        a frame of the gate's or yard's stream
  //   s5  m30000    time passes: seconds up to a tick of the host, milliseconds
  std::string Play(const std::string& steps) {
    std::string dispatched;
    std::istringstream words(steps);
    for (std::string word; words >> word;) {
      std::string ids;
      if (word[0] == 'f') {
        ids = Frame(word[1] == 'g' ? 2 : 3);
      } else if (word[0] == 's') {
        ids = Tick(std::stoi(word.substr(1)));
      } else if (word[0] == 'm') {
        tick_ += static_cast<std::uint32_t>(std::stoul(word.substr(1)));
      } else {
        std::string entries, entry;
        for (std::istringstream list(word); std::getline(list, entry, ',');) {
          const auto has = [&](char mark) { return entry.find(mark) != std::string::npos; };
          const std::size_t mark = entry.find_first_of("yGni");
          entries += EventEntry(entry[0] - '0', !has('-'),
                                std::string(has('\'') ? "Time='1500000009' " : "") +
                                    (has('t') ? "Message='Testing Profile'" : ""),
                                From(mark == std::string::npos ? "g" : entry.substr(mark, 1)));
        }
        ids = Send(entries);
      }
      dispatched += (dispatched.empty() ? "" : " ") + (ids.empty() ? "-" : ids);
    }
    return dispatched;
  }

  FakeHost host_;
  std::uint32_t tick_ = 0xFFFFFFFF - 5000;  // the clock wraps meanwhile
  std::int64_t wall_ = 1'500'000'000;
  std::unique_ptr<ServiceState> state_ = std::make_unique<ServiceState>(&FakeHost::Entry);
  WorkQueue::Item last_;  // that was dispatched
  bool isTaken_ = false;  // the last frame
};

TEST_F(IntakeTest, DispatchesParksAndReleases) {
  for (const auto& row : Rows(Table(TABLES))) {
    EXPECT_EQ(Play(row[1]), row[2]) << row[0];
    Reset();
  }
  Play("3+ s99");
  EXPECT_EQ(state_->buffers.FindChannel(Source(2))->OpenClips(), 0u) << "though it sends no more";
  Play("1+,3+G m1000 fg fy");  // is parked at the end
}

TEST_F(IntakeTest, SkipsWhatIsNotItsOwnOrIncomplete) {
  const std::string mine = "<Profiles>" + EventEntry(6) + "</Profiles></Notify>";
  const std::string alien = "<Notify ID='786433'>" + mine + "<Notify>" + mine;
  EXPECT_EQ(Send("<Profile ID='6' Action='7'/><Profile ID='6' Alarm='x' Action='7'/>"), "");
  EXPECT_EQ(Send(EventEntry(6, true, "Action='x'") + EventEntry(6, true, "Action=''")), "");
  EXPECT_EQ(Send(EventEntry(7, true, "Message='Testing Profile '"), alien), "");
  EXPECT_EQ(Send("<Anything ID='6' Alarm='5' Action='7'/>",
                 "<Notify ID='786432'/><Notify ID='786432'>" + mine),
            "66");
  EXPECT_EQ(last_->eventSeconds, wall_) << "when the document does not say";
  EXPECT_TRUE(last_->isStart);
  Play("3+");
  EXPECT_EQ(Send(EventEntry(9, false, "Time='1' Action='x'")), "3") << "nobody is told of the 9";
  const char* const line =
      "Received a notification request for an unknown profile 9. Request will be ignored";
  EXPECT_EQ(host_.Log().back(), (LogLine{25, line}));
}

// Alarm and attributes; sources, with their type where it is not usual; the server; the facts with
// type, pre-trigger and videos; the rest of the profile's line.
TEST_F(IntakeTest, DescribesTheEventInTheItemAndInTheLog) {
  Update(Notify(Profile(11, "description='Door' EventEdge='2' attach='1' MaxVideoSeconds='0'"),
                "EmailSizeLimitMB='3'"));
  const auto config = state_->config;
  for (const auto& row : Rows(Table(TABLES))) {
    std::string sources;
    std::istringstream words(row[1]);
    for (std::string word; words >> word;) sources += From(word);
    Send(EventEntry(11, row[0][0] == '1', row[0].substr(1), sources),
         "<Servers><Server " + row[2] + "/><Server Serial='other'/></Servers>");
    const TemplateFacts& f = last_->facts;
    const SystemFacts& s = *last_->system;
    std::string item = f.sourceName + "," + f.eventState + "," + s.description + "," + s.serial +
                       "," + s.macAddress + " " + std::to_string(f.eventType) + " " +
                       std::to_string(last_->preTriggerSeconds);
    for (const AttachmentSource& video : last_->videos) {
      item += " " + video.name + (video.clip == nullptr ? "?" : "");
    }
    EXPECT_EQ(item, row[3]);
    EXPECT_EQ(last_->cameras.size(), last_->videos.size());
    EXPECT_EQ(last_->isTest, row[4].empty());
    if (last_->isTest) continue;
    const std::string line = "Profile Door: PreTrigger(" +
                             std::to_string(last_->preTriggerSeconds) +
                             "), MaxDuration(0), MaxSizeMB(3)" + row[4];
    EXPECT_EQ(host_.Log().back(), (LogLine{25, line}));
  }
  EXPECT_EQ(host_.Logged("Unable to map video input to stream/ channel id to locate video frame") +
                host_.Logged("Unable to locate corresponding video frame for channel/stream id "
                             "-268435449 to attach to this notification profile"),
            2);
  EXPECT_EQ(last_->eventSeconds + last_->facts.eventTime, 3000000000);
  EXPECT_EQ(last_->eventMilliseconds, 250);
  EXPECT_EQ(last_->source.value, 769u);
  const std::string server = "<Servers><Server Serial='" + std::string(5000, 'm') + "'/></Servers>";
  Send("", server);
  const auto facts = state_->system;
  EXPECT_EQ(facts->serial.size(), 4096u);
  Send("", server);
  EXPECT_EQ(state_->system, facts) << "nothing new";
  Update(Notify(Profile(11, "description='" + std::string(600, 'x') + "'")));
  EXPECT_EQ(last_->profile, &config->profiles.at(11)) << "what comes later does not reach back";
  EXPECT_EQ(last_->config, config);
  Send(EventEntry(11));
  EXPECT_EQ(host_.Log().back().text, "Profile " + std::string(492, 'x'));
}

TEST_F(IntakeTest, TheOldestVideoIsLetGoWhenTooMuchWaits) {
  const LogLine line{50,
                     "More than 256 MB of video wait to be sent. The oldest clips are given up; "
                     "their notifications will be sent without them"};
  const std::uint32_t half = (128u << 20) - 100;
  Update(Notify(Attaching(1, "EventEdge='0'") + Attaching(3, "EventEdge='2'"),
                "EmailSizeLimitMB='1000'"));
  const auto withClip = [&](const std::string& profile) {
    return profile + (last_->videos.at(0).clip->WasLetGo() ? " gone" : " whole");
  };
  for (int outage = 1; outage <= 2; ++outage) {
    tick_ += 10'000;  // longer than the time before the event
    Frame(2, half);
    Frame(3, half);
    EXPECT_EQ(Play("1+ 3+y"), "- -");
    EXPECT_EQ(host_.Logged(line.text), outage - 1);
    EXPECT_EQ(withClip(Frame(2, 1000, false)), "1 gone") << "there is nothing more to wait for";
    EXPECT_EQ(host_.Log().back(), line);
    EXPECT_EQ(withClip(Play("1+")), "3 gone") << "the next oldest, for the same frames again";
    EXPECT_EQ(withClip(Play("s99")), "1 whole");
    last_.reset();
    Play("fg fg");
  }
  EXPECT_EQ(host_.Logged(line.text), 2) << "once each";
}

TEST(Throttle, AdmitsEachProfileOnceAnInterval) {
  Throttle throttle;
  std::uint32_t now = 0xFFFFFFFF - 5000;  // the clock wraps in between
  // Milliseconds later, the interval, the answer. What is refused does not move the time, a new
  // interval starts anew.
  std::istringstream steps(
      "0 10 1  9999 10 0  1 10 1  5000 20 1  19999 20 0  0 10 1  0 0 1  0 0 1  0 -5 1  0 -5 1  "
      "0 2147483647 1  2147483647 2147483647 0  0 3000000 1  3000000000 3000000 1");
  std::int32_t interval = 0;
  bool isAdmitted = false;
  for (std::uint32_t later = 0; steps >> later >> interval >> isAdmitted;) {
    EXPECT_EQ(throttle.Admit(1, interval, now += later), isAdmitted) << now << " " << interval;
  }
}

TEST_F(IntakeTest, TellsWhichProfilesAChangeMayConcern) {
  const std::string a =
      "<smtp description='A' address='a' port='25' UseSSL='0'><Authentication username='u' "
      "password='p'/></smtp>";
  const std::string b = boost::replace_first_copy(a, "'A'", "'B'");
  const std::string both = Profile(1, "attach='0'") + Profile(2);
  state_ = std::make_unique<ServiceState>(&FakeHost::Entry);
  EXPECT_EQ(Update(Notify(both, "", "")), "12") << "new profiles";
  for (const auto& [servers, affected] : std::vector<std::pair<std::string, const char*>>{
           {a, "12"}, {a, ""}, {a + b, ""}, {b + a, ""}, {a, "12"}, {a + a, ""}, {a, "12"}}) {
    EXPECT_EQ(Update(Notify(both, "", servers)), affected) << "from none to " << servers;
  }
  EXPECT_EQ(Update(Notify(both + Profile(3), "", a)), "3");
  const std::string usual = Notify(both, "", a);
  EXPECT_EQ(Update(usual), "") << "one has gone";
  // What is put in the place of what, and the profiles that this and its way back concern.
  std::istringstream rows(
      "'A' 'B' 12  'a' 'b' 12  25 26 12  UseSSL='0' UseSSL='1' 12  'u' 'v' 12  'p' 'q' 12  f@x g@x "
      "1  "
      "'s' 't' 1  t@x u@x 1  <body> <cc>t@x</cc><body> 1  <body> <bcc>t@x</bcc><body> 1  "
      "<body> <body>c 1  attach='0' attach='1' -");
  for (std::string old, other, concerned; rows >> old >> other >> concerned;) {
    if (concerned == "-") concerned.clear();
    EXPECT_EQ(Update(boost::replace_first_copy(usual, old, other)), concerned) << other;
    EXPECT_EQ(Update(usual), concerned) << other;
  }
}

TEST_F(IntakeTest, ChangesReachWorkerAndFrameHistory) {
  state_->configurationChanged = false;
  EXPECT_EQ(Update("<Notify ID='786432' MaxRetryQueue='3'><Servers/></Notify>"), "rejected");
  EXPECT_EQ(Update("<Notify ID='786433'><Servers/><Profiles/></Notify>") + Update(""),
            "rejectedrejected");
  EXPECT_EQ(state_->config->MaxRetryQueue, 3) << "the settings all the same";
  EXPECT_EQ(state_->config->profiles.size(), 8u);
  EXPECT_FALSE(state_->configurationChanged);
  Update(Notify(Profile(1), "EmailSizeLimitMB='0'"));
  EXPECT_TRUE(state_->configurationChanged);
  Frame(2);
  EXPECT_FALSE(isTaken_) << "no video fits into mails of no size";
}

// Each step: of "SecondReviewer" what a document says, whether a save is due and the attachments are
// told to be off, and whether the mode is on.
TEST_F(IntakeTest, SecondReviewerModeGoesBothWays) {
  Update(Notify(Attaching(1, "") + Attaching(2, "") + Profile(6)));
  state_->configurationChanged = false;
  for (const std::string step :
       {"5:save:told:on", "1:on", "x:on", "0:save:off", "0:off", "1:save:on"}) {
    host_.ClearLog();
    std::string found(1, step[0]);
    if (TakeSystem(TwoCameras() + "<Users><SecondReviewer Enabled='" + found + "'/></Users>")) {
      found += ":save";
    }
    if (host_.Logged("Disabled all attachments for second reviewer mode.") == 1) found += ":told";
    EXPECT_EQ(found + (state_->config->secondReviewerMode ? ":on" : ":off"), step);
    EXPECT_FALSE(state_->config->profiles.at(1).attach || state_->config->profiles.at(2).attach);
  }
  EXPECT_FALSE(TakeSystem(TwoCameras()));
  EXPECT_FALSE(state_->configurationChanged) << "retries stay";
  NotifyConfig config = *state_->config;  // whatever put it there
  config.profiles.at(1).attach = true;
  ReplaceConfig(std::move(config), *state_);
  EXPECT_EQ(Play("6+ 1+"), "6 1") << "a document that does not say leaves the mode on";
  EXPECT_EQ(last_->videos.size() + 1, last_->cameras.size());
  EXPECT_EQ(host_.Log().at(1), (LogLine{50, "Attachments will be omitted for \"Profile 1\""}));
}

TEST_F(IntakeTest, SystemDocumentsKeepWhatTheyDoNotMention) {
  TakeSystem("<Events><Event ID='8' PreAlarm='3'/><Event ID='10'/></Events>");
  EXPECT_EQ(state_->config->preAlarms, (std::map<std::int32_t, std::int32_t>{{7, 5}, {8, 3}}));
  EXPECT_TRUE(state_->eventActions.sources.empty()) << "\"Events\" without actions empty the table";
  TakeSystem(TwoCameras());
  Frame(2);
  EXPECT_TRUE(isTaken_);
  TakeSystem("");
  EXPECT_EQ(state_->eventActions.sources.size(), 2u);
  Frame(2);
  EXPECT_FALSE(isTaken_) << "but the streams are gone";
}

}  // namespace
}  // namespace tvx::test
