#include "service/notify_service.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <future>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "host/host_entry.h"
#include "support/documents.h"
#include "support/fake_host.h"
#include "support/fake_programs.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

using test::Change;
using test::EventDocument;
using test::EventEntry;
using test::LogLine;
using test::Notify;
using test::Profile;
using test::SystemDocument;

std::string Gate(const std::string& body = "b") {
  return Profile(1, "attach='1' MaxVideoSeconds='30'", "<to>t@x</to><body>" + body + "</body>");
}
// An event without video, so that its mail goes out at once.
std::string Event(int number = 0) {
  return EventDocument(EventEntry(1, true, "Milliseconds='" + std::to_string(number) + "'",
                                  "<EventSource ID='769' Type='3'/>"));
}
std::string Cameras() {
  return SystemDocument(test::Devices(test::Camera(2, "Gate")) + "<Events>" +
                        test::NotifyingEvent(7, 2) + "</Events>");
}
std::string SecondReviewer(const char* enabled) {
  return SystemDocument("<Users><SecondReviewer Enabled='" + std::string(enabled) + "'/></Users>");
}

// What the host does with each call before it answers, for one test at a time.
std::function<void()> duringCalls;

int Entry(HostRequest* request, HostReply* reply) {
  thread_local bool inside = false;
  if (duringCalls && !inside) {
    inside = true;
    duringCalls();
    inside = false;
  }
  return test::FakeHost::Entry(request, reply);
}

// A service with a working folder, and a host whose programs are scripted.
class NotifyServiceTest : public testing::Test {
 protected:
  NotifyServiceTest()
      : programs_(host_, [this](const std::string& chunk) {
          channel_.Receive(chunk.data(), static_cast<std::uint32_t>(chunk.size()));
        }) {
    channel_.Register(kModuleId, [](void* chunk, std::uint32_t size) {
      HostRequest request = MakeHostRequest(HostCommand::ChannelMessage, PayloadKind::None);
      request.length = size;
      request.payload = chunk;
      HostReply reply = MakeHostReply();
      return test::FakeHost::Entry(&request, &reply) == 0;
    });
    programs_.OnRun([this](const test::Launch& launch) {
      test::ProgramEnd end;
      if (launch.arguments.size() == 2) {
        end.output = versionOutput_;
      } else {
        end.rawStatus = static_cast<std::uint32_t>(curlExit_) << 8;
        end.runsOn = curlExit_ < 0;
      }
      return end;
    });
    SetWallClock([this] { return std::int64_t{std::time(nullptr)} + secondsAhead_; });
  }

  ~NotifyServiceTest() override {
    StopWorker();
    duringCalls = nullptr;
    SetWallClock({});
    EXPECT_EQ(host_.Problems(), Texts{});
  }

  void Open(const std::string& block = Notify(Gate())) {
    test::WriteFile("notify.xml", test::Root(block));
    service_.Open();
  }

  void StartWorker() {
    worker_ = std::thread([this] { service_.RunWorker(); });
  }

  void StopWorker() {
    service_.Stop();
    channel_.Close();
    if (worker_.joinable()) worker_.join();
  }

  void Update(const std::string& text) { service_.ApplyUpdate(text.data(), text.size()); }
  void Send(const std::string& text) { service_.ReceiveEventDocument(text.data(), text.size()); }

  bool WaitForStatuses(std::size_t count) {
    return host_.WaitFor([&] { return host_.Statuses().size() >= count; });
  }
  static bool Saved(const std::string& text) {
    return test::ReadFile("notify.xml").find(text) != std::string::npos;
  }
  static std::string File(int number, int sequence = 0) {
    return "data/notify-mail-1-1500000000-" + std::to_string(number) + "-" +
           std::to_string(sequence);
  }

  using Texts = std::vector<std::string>;
  test::TemporaryFolder folder_;
  test::FakeHost host_;
  ProcessChannel channel_;
  std::string versionOutput_ = "curl 8\nProtocols: smtp smtps\nFeatures: SSL\n";
  std::atomic<int> curlExit_{0};      // negative: never ends
  std::atomic<int> secondsAhead_{0};  // of the wall clock
  NotifyService service_{&Entry, channel_};
  test::FakePrograms programs_;
  std::thread worker_;
};

TEST_F(NotifyServiceTest, OpenProbesRegistersLoadsSavesAndPublishes) {
  Open();
  EXPECT_EQ(programs_.Launches(), (std::vector<test::Arguments>{{"./curl", "-V"}}));
  const auto documents = host_.Documents();
  ASSERT_EQ(documents.size(), 2u);
  EXPECT_NE(documents[0].text.find("<Module Name=\"NotifyPI\" ID=\"786432\""), std::string::npos);
  EXPECT_EQ(documents[1].command, HostCommand::ConfigDocument);
  EXPECT_NE(documents[1].text.find(" SSL=\"2\" "), std::string::npos);
  EXPECT_NE(documents[1].text.find("description=\"Profile 1\""), std::string::npos);
  EXPECT_EQ(test::ReadFile("notify.xml"), documents[1].text);
  EXPECT_EQ(host_.Log(),
            (std::vector<LogLine>{{25, "Loaded configuration from disk successfully"}}));
}

TEST_F(NotifyServiceTest, OpenGoesOnWithoutCurlAndWithoutAUsableFile) {
  versionOutput_ = "Protocols: smtp\n";
  const LogLine empty{50,
                      "Either no configuration or an improper configuration was found, continuing "
                      "with empty configuration."};
  Open("<Notify ID='786433'><Servers/><Profiles/></Notify>");
  EXPECT_EQ(host_.Log(), std::vector<LogLine>{empty});
  EXPECT_EQ(host_.Documents().back().text.find("SSL="), std::string::npos);
  EXPECT_TRUE(test::FileExists("notify.xml.rejected"));
  EXPECT_TRUE(Saved("<Notify"));
  // A rejected file that cannot be kept aside stays until the next change.
  host_.ClearLog();
  ::remove("notify.xml.rejected");
  ::mkdir("notify.xml.rejected", 0700);
  test::WriteFile("notify.xml.rejected/file", "");
  Open("mine");
  EXPECT_EQ(host_.Log(),
            (std::vector<LogLine>{
                {50,
                 "The rejected notify.xml could not be renamed to notify.xml.rejected and stays as "
                 "it is until the next change of the configuration"},
                empty}));
  EXPECT_TRUE(Saved("mine"));
  Update(Change(Notify(Gate())));
  EXPECT_TRUE(Saved("description=\"Profile 1\""));
}

TEST_F(NotifyServiceTest, UpdatesAreSavedPublishedAndReported) {
  Open();
  for (const char* const delta : {"1", "-3", "2"}) {
    const std::size_t before = host_.Documents().size();
    const std::string body = std::string("body ") + delta;
    Update(test::Root(Notify(Gate(body)), "Delta='" + std::string(delta) + "'"));
    const auto documents = host_.Documents();
    ASSERT_EQ(documents.size(), before + 2);
    EXPECT_EQ(documents[before].text, test::ReadFile("notify.xml"));
    EXPECT_TRUE(Saved("<body>" + body + "</body>"));
    const std::string changed = "<Profile ID=\"1\" Status=\"-1\" Time=\"";
    const std::size_t at = documents.back().text.find(changed);
    ASSERT_NE(at, std::string::npos) << documents.back().text;
    EXPECT_NEAR(std::stod(documents.back().text.substr(at + changed.size())),
                static_cast<double>(std::time(nullptr)), 60);
    EXPECT_EQ(host_.Log().back(), (LogLine{25, "Updated configuration successfully"}));
  }
  // Nothing of it for documents that are no change, or none of this one's.
  const std::size_t before = host_.Documents().size();
  const std::size_t lines = host_.Log().size();
  const std::string block = Notify(Gate());
  for (const std::string& text :
       {test::Root(block), test::Root(block, "Delta='x'"), SystemDocument(block), Change(""),
        Change("<Notify ID='786432'><Servers/></Notify>"), "<other Delta='1'>" + block + "</other>",
        std::string("<tDVR Delta='1'>"), std::string()}) {
    Update(text);
  }
  service_.ApplyUpdate(nullptr, 10);
  EXPECT_EQ(host_.Documents().size(), before);
  EXPECT_EQ(host_.Log().size(), lines);
  EXPECT_TRUE(Saved("body 2"));
}

TEST_F(NotifyServiceTest, SecondReviewerModeIsSavedBothWays) {
  Open();
  Update(SecondReviewer("1"));
  EXPECT_TRUE(Saved("SupportsAttach=\"0\"") && Saved("attach=\"0\""));
  const std::size_t before = host_.Documents().size();
  Update(SecondReviewer("1"));
  EXPECT_EQ(host_.Documents().size(), before) << "nothing new";
  Update(SecondReviewer("0"));
  EXPECT_TRUE(Saved("SupportsAttach=\"1\""));
  EXPECT_EQ(host_.Logged("Disabled all attachments for second reviewer mode."), 1);
}

// While one configuration is being published, the next ones come.
TEST_F(NotifyServiceTest, TheNewestConfigurationIsPublishedLast) {
  Open();
  const auto change = [&](const char* body) { Update(Change(Notify(Gate(body)))); };
  std::string published;
  host_.OnDocument([&](const test::SentDocument& document) {
    const std::size_t at = document.text.find("<body>");
    published += at == std::string::npos ? "s" : document.text.substr(at + 6, 1);
    if (published == "1") change("2");
    if (published == "1s2") std::thread([&] { change("3"), change("4"); }).join();
  });
  change("1");
  EXPECT_EQ(published, "1s2s4ss") << "one at a time, each newer, with a status for each behind it";
  EXPECT_TRUE(Saved("<body>4</body>"));
  change("4");
  EXPECT_EQ(published, "1s2s4ss4s") << "though it affects no profile";
  EXPECT_EQ(host_.Documents().back().text.find("<Profile "), std::string::npos);
}

TEST_F(NotifyServiceTest, TheHostIsNeverCalledUnderTheIntakeMutex) {
  std::vector<char> frames(4);
  std::size_t frame = 0;
  int calls = 0;
  duringCalls = [&] {
    ++calls;
    auto other = std::async(std::launch::async, [&] { service_.Tick(); });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  };
  const auto push = [&](std::uint32_t length) {
    EXPECT_TRUE(
        service_.ReceiveFrame({test::Source(2), kKeyFrame, 0, &frames.at(frame++), length}));
  };
  Open();
  StartWorker();
  Update(Cameras());
  push(6 << 20);
  push(6 << 20);  // the first goes
  Send(EventDocument(EventEntry(1) + EventEntry(9) + EventEntry(1, true, "", "")));
  Update(Change(Notify(Gate(), "EmailSizeLimitMB='5'")));
  push(1);
  Update(SecondReviewer("1"));  // and the streams are gone, and with them the frames
  Send(Event());
  secondsAhead_ = 1000;
  service_.Tick();
  EXPECT_TRUE(WaitForStatuses(3));
  EXPECT_EQ(host_.FramesReleased(), 3u);
  StopWorker();
  EXPECT_GE(calls, 15);
}

TEST_F(NotifyServiceTest, FailuresAreReportedAndANewConfigurationClearsWhatWaits) {
  Open();
  StartWorker();
  curlExit_ = 67;
  Send(Event(1));
  ASSERT_TRUE(WaitForStatuses(1));
  curlExit_ = 7;
  Send(Event(2));
  ASSERT_TRUE(WaitForStatuses(2));
  Update(Change(Notify(Gate("new"))));
  ASSERT_TRUE(host_.WaitFor([&] {
    return host_.Logged(
               "Clearing retry notifications queue. 1 failed notifications will be "
               "discarded") == 1;
  }));
  // Once: what fails after it waits.
  Send(Event(3));
  ASSERT_TRUE(WaitForStatuses(3));
  Send(Event(4));
  ASSERT_TRUE(WaitForStatuses(4));
  Update(Cameras());
  curlExit_ = 0;
  Send(Event(5));
  ASSERT_TRUE(WaitForStatuses(5));
  StopWorker();
  EXPECT_EQ(host_.Statuses(), (Texts{"1:1", "1:1", "1:1", "1:1", "1:0"}));
  for (int number = 1; number <= 5; ++number) {
    EXPECT_EQ(test::FileExists(File(number, number == 2 ? 0 : number - 2)),
              number == 3 || number == 4)
        << number;
  }
}

TEST_F(NotifyServiceTest, TicksCountTheTurnsOfTheClockForTheThrottle) {
  std::uint32_t tick = 0;
  SetTickClock([&] { return tick; });
  Open(Notify(Profile(1, "ThrottleSeconds='10'")));
  Send(Event(1));
  for (tick = 0x80000000u; tick != 0; tick += 0x80000000u) service_.Tick();
  Send(Event(2));
  StartWorker();
  EXPECT_TRUE(WaitForStatuses(2));
  StopWorker();
  SetTickClock(MonotonicTick);
}

TEST_F(NotifyServiceTest, ABlockedLaunchDoesNotHoldUpTheStop) {
  Open();
  curlExit_ = -1;
  StartWorker();
  std::thread watchdog([&] { service_.RunWatchdog(); });
  Send(Event());
  ASSERT_TRUE(host_.WaitFor([&] { return programs_.Launches().size() == 2; }));
  Send(Event(1));
  StopWorker();  // ends curl's wait; the second event is dropped unsent
  watchdog.join();
  EXPECT_EQ(programs_.Launches().size(), 2u);
  EXPECT_EQ(host_.Statuses(), (Texts{"1:1"})) << "an end that nobody saw is no delivery";
}

TEST_F(NotifyServiceTest, WhatWasAcceptedIsNotLostWithWhatFailed) {
  Open();
  StartWorker();
  int calls = 0;
  SetTickClock([&]() -> std::uint32_t { return ++calls == 2 ? throw std::bad_alloc() : 0; });
  EXPECT_THROW(Send(EventDocument(EventEntry(1, true, "", "") + EventEntry(1, true, "", ""))),
               std::bad_alloc);
  EXPECT_TRUE(WaitForStatuses(1));
  StopWorker();
  SetTickClock(MonotonicTick);
  // Nor is the turn of whoever publishes.
  host_.OnDocument([](const test::SentDocument&) { throw std::bad_alloc(); });
  EXPECT_THROW(Update(Change(Notify(Gate("lost")))), std::bad_alloc);
  host_.OnDocument(nullptr);
  Update(Change(Notify(Gate("kept"))));
  EXPECT_TRUE(Saved("kept"));
  const auto documents = host_.Documents();
  EXPECT_EQ(std::count_if(documents.begin(), documents.end(),
                          [](const test::SentDocument& document) {
                            return document.text.find("Status=\"-1\"") != std::string::npos;
                          }),
            2)
      << "of both changes";
}

TEST_F(NotifyServiceTest, AReportThatFailsDoesNotUndoADelivery) {
  Open();
  StartWorker();
  std::atomic<bool> fails{true};
  host_.OnDocument([&](const test::SentDocument&) {
    if (fails.exchange(false)) throw std::bad_alloc();
  });
  Send(Event());
  EXPECT_TRUE(WaitForStatuses(2));
  EXPECT_EQ(host_.Statuses(), (Texts{"1:0", "1:0"}));
  StopWorker();
}

TEST_F(NotifyServiceTest, TooManyNotificationsEndUnsent) {
  Open();
  std::string entries;
  for (int i = 0; i < 20'002; ++i) entries += "<e ID='1' Alarm='1' Action='7'/>";
  Send(EventDocument(entries));
  EXPECT_EQ(host_.Statuses(), (Texts{"1:1", "1:1"}));
  Send(Event());
  EXPECT_EQ(host_.Statuses().size(), 3u);
  EXPECT_EQ(host_.Logged("More than 20000 notifications wait to be sent. The oldest ones will not "
                         "be sent"),
            1);
}

TEST_F(NotifyServiceTest, HostileDocumentsAreToldOfAndChangeNothing) {
  Open();
  const std::string huge(17u << 20, 'x');
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<a>";
  Send(huge);
  Update(deep);
  Send(std::string("\0\1\2", 3));
  service_.ReceiveEventDocument(nullptr, 7);
  const auto log = host_.Log();
  ASSERT_EQ(log.size(), 3u);
  EXPECT_EQ(log[1],
            (LogLine{50, "Ignored an event document of the host: it is larger than 16 MiB"}));
  EXPECT_EQ(log[2], (LogLine{50,
                             "Ignored a configuration document of the host: its elements are "
                             "nested more than 256 deep"}));
}

TEST_F(NotifyServiceTest, EventsFramesTicksAndUpdatesMayComeAtOnce) {
  constexpr int kRounds = 60;
  Open();
  StartWorker();
  std::vector<char> frames(3 * kRounds);
  const auto repeat = [](const std::function<void(int)>& action) {
    return std::thread([=] {
      for (int i = 0; i < kRounds; ++i) action(i);
    });
  };
  std::thread threads[] = {
      repeat([&](int) { Send(EventDocument(EventEntry(1))); }),
      repeat([&](int i) { Send(Event(i)); }),
      repeat([&](int i) { Update(i % 3 == 0 ? Change(Notify(Gate())) : Cameras()); }),
      repeat([&](int i) {
        for (int n = 0; n < 3; ++n) {
          service_.ReceiveFrame({test::Source(2), i % 3 == 0 ? 1u : 0u, 0,
                                 &frames[static_cast<std::size_t>(3 * i + n)], 1});
        }
      }),
      repeat([&](int) { service_.Tick(); }),
  };
  for (std::thread& thread : threads) thread.join();
  // Nothing that was accepted is lost: every event has its mail, parked ones at their deadline.
  secondsAhead_ = 1000;
  service_.Tick();
  EXPECT_TRUE(host_.WaitFor([&] {
    const Texts statuses = host_.Statuses();
    return std::count(statuses.begin(), statuses.end(), "1:0") == 2 * kRounds;
  }));
}

}  // namespace
}  // namespace tvx
