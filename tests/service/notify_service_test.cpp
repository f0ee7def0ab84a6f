#include "service/notify_service.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "host/host_entry.h"
#include "support/fake_host.h"
#include "support/fake_programs.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

std::string NotifyBlock(const std::string& body = "b", const std::string& profiles = "") {
  return "<Notify ID='786432'><Servers><smtp description='Main' address='mail'/></Servers>"
         "<Profiles><smtp ID='1' attach='1' description='Gate' from='f@x' subject='s'>"
         "<to>t@x</to><body>" +
         body + "</body></smtp>" + profiles + "</Profiles></Notify>";
}

std::string Event(std::int32_t time = 1500000000) {
  return "<tDVR><Notify ID='786432'><Profiles><Profile ID='1' Alarm='1' Action='7' Time='" +
         std::to_string(time) +
         "'><EventSource ID='769' Type='3'/></Profile></Profiles></Notify>"
         "</tDVR>";
}

// A service with its worker running, a working folder, and a host whose programs are scripted.
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
    programs_.OnRun([this](const test::Arguments& arguments) { return Curl(arguments); });
    SetWallClock([this] { return std::int64_t{std::time(nullptr)} + secondsAhead_; });
  }

  ~NotifyServiceTest() override {
    StopWorker();
    SetWallClock({});
    EXPECT_TRUE(host_.MalformedRequests().empty());
  }

  test::ProgramEnd Curl(const test::Arguments& arguments) {
    if (arguments.size() == 2) return {0, "curl 8\nProtocols: smtp smtps\n"};
    test::ProgramEnd end;
    end.rawStatus = static_cast<std::uint32_t>(curlExit_.load()) << 8;
    return end;
  }

  void Open(const std::string& block = NotifyBlock()) {
    test::WriteFile("notify.xml", "<tDVR>" + block + "</tDVR>");
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

  // The status documents so far, as "ID:status".
  std::vector<std::string> Statuses() const {
    std::vector<std::string> statuses;
    for (const test::SentDocument& document : host_.Documents()) {
      if (document.command != HostCommand::StatusDocument) continue;
      for (std::size_t at = 0; (at = document.text.find("<Profile ", at)) != std::string::npos;
           ++at) {
        const auto value = [&](const char* name) {
          const std::size_t from = document.text.find(name, at) + std::string(name).size() + 2;
          return document.text.substr(from, document.text.find('"', from) - from);
        };
        statuses.push_back(value("ID") + ":" + value("Status"));
      }
    }
    return statuses;
  }

  bool WaitForStatuses(std::size_t count) {
    return host_.WaitFor([&] { return Statuses().size() >= count; });
  }

  using Texts = std::vector<std::string>;
  test::TemporaryFolder folder_;
  test::FakeHost host_;
  ProcessChannel channel_;
  std::atomic<int> curlExit_{0};
  std::atomic<int> secondsAhead_{0};  // of the wall clock
  NotifyService service_{&test::FakeHost::Entry, channel_};
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
  EXPECT_NE(documents[1].text.find("description=\"Gate\""), std::string::npos);
  EXPECT_EQ(test::ReadFile("notify.xml"), documents[1].text);
  EXPECT_EQ(host_.Log(),
            (std::vector<test::LogLine>{{25, "Loaded configuration from disk successfully"}}));
}

TEST_F(NotifyServiceTest, OpenGoesOnWithoutCurlAndWithoutAUsableFile) {
  programs_.OnRun([](const test::Arguments&) {
    test::ProgramEnd end;
    end.fails = true;
    return end;
  });
  Open("<Notify ID='786433'><Servers/><Profiles/></Notify>");
  EXPECT_EQ(host_.Log(), (std::vector<test::LogLine>{
                             {50,
                              "Either no configuration or an improper configuration was found, "
                              "continuing with empty configuration."}}));
  EXPECT_EQ(host_.Documents().back().text.find("SSL="), std::string::npos);
  EXPECT_TRUE(test::FileExists("notify.xml.rejected"));
  EXPECT_TRUE(test::FileExists("notify.xml"));
}

TEST_F(NotifyServiceTest, AnEventBecomesAMessageFileThatCurlIsGiven) {
  Open(NotifyBlock("At {time}\nby {source}"));
  std::string composed;
  programs_.OnRun([&](const test::Arguments& arguments) {
    composed = test::ReadFile(arguments[arguments.size() - 2]);
    return test::ProgramEnd{};
  });
  StartWorker();
  Send(Event());
  ASSERT_TRUE(WaitForStatuses(1));
  EXPECT_EQ(Statuses(), (Texts{"1:0"}));
  EXPECT_EQ(composed.substr(0, composed.find("At ")), "From: f@x\r\nTo: t@x\r\nSubject: s\r\n\r\n");
  EXPECT_NE(composed.find("\nby Trigger Input 3-1"), std::string::npos);
  StopWorker();
  EXPECT_FALSE(test::FileExists("data/notify-mail-1-1500000000-0-0"));
}

TEST_F(NotifyServiceTest, ATestMessageSaysSo) {
  Open();
  std::string composed;
  programs_.OnRun([&](const test::Arguments& arguments) {
    composed = test::ReadFile(arguments[arguments.size() - 2]);
    return test::ProgramEnd{};
  });
  StartWorker();
  std::string event = Event();
  event.replace(event.find("Alarm='1'"), 9, "Alarm='0' Message='Testing Profile'");
  Send(event);
  ASSERT_TRUE(WaitForStatuses(1));
  EXPECT_EQ(composed, "From: f@x\r\nTo: t@x\r\nSubject: s\r\n\r\nTesting Profile\r\nb");
}

TEST_F(NotifyServiceTest, FailuresAreReportedAndLeaveNoFileThatNobodySends) {
  Open();
  StartWorker();
  curlExit_ = 67;
  Send(Event());
  ASSERT_TRUE(WaitForStatuses(1));
  curlExit_ = 7;
  Send(Event(1500000001));
  ASSERT_TRUE(WaitForStatuses(2));
  EXPECT_TRUE(test::FileExists("data/notify-mail-1-1500000001-0-0"));  // will be retried
  EXPECT_FALSE(test::FileExists("data/notify-mail-1-1500000000-0-0"));
  EXPECT_EQ(host_.Logged("Failed to send notification using profile Gate.  This message will be "
                         "retried"),
            1);
  // A new configuration takes what waits for the old one away, at the worker's next turn.
  Update("<tDVR Delta='1'>" + NotifyBlock() + "</tDVR>");
  ASSERT_TRUE(host_.WaitFor([&] {
    return host_.Logged(
               "Clearing retry notifications queue. 1 failed notifications will be "
               "discarded") == 1;
  }));
  StopWorker();  // the files go behind the line
  EXPECT_FALSE(test::FileExists("data/notify-mail-1-1500000001-0-0"));
  EXPECT_EQ(Statuses(), (Texts{"1:1", "1:1"}));
}

TEST_F(NotifyServiceTest, AMailThatFailedIsSentOnceTheServerIsBack) {
  std::atomic<std::uint32_t> tick{0};
  SetTickClock([&] { return tick.load(); });
  Open();
  StartWorker();
  curlExit_ = 7;
  for (int i = 0; i < 3; ++i) Send(Event(1500000000 + i));
  ASSERT_TRUE(WaitForStatuses(3));
  curlExit_ = 0;
  tick = 60'000;
  ASSERT_TRUE(WaitForStatuses(6));
  EXPECT_EQ(Statuses(), (Texts{"1:1", "1:1", "1:1", "1:0", "1:0", "1:0"}));
  StopWorker();
  SetTickClock(MonotonicTick);
  const auto launches = programs_.Launches();
  ASSERT_EQ(launches.size(), 7u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(*(launches[static_cast<std::size_t>(4 + i)].end() - 2),
              "./data/notify-mail-1-150000000" + std::to_string(i) + "-0-" + std::to_string(i));
  }
}

TEST_F(NotifyServiceTest, BadNotificationsDoNotEndTheWorker) {
  Open();
  test::WriteFile("data", "no folder");
  StartWorker();
  Send(Event());
  ASSERT_TRUE(WaitForStatuses(1));
  EXPECT_EQ(host_.Log().back(), (test::LogLine{75, "Unable to create data directory: \"" +
                                                       folder_.Path() + "/data\""}));
  std::remove("data");
  Update("<tDVR Delta='1'>" +
         NotifyBlock("b",
                     "<smtp ID='2' description='Bad' from='nobody' "
                     "subject='s'><to>t@x</to></smtp>") +
         "</tDVR>");
  std::string bad = Event();
  bad.replace(bad.find("ID='1'"), 6, "ID='2'");
  Send(bad);
  Send(Event());
  ASSERT_TRUE(WaitForStatuses(4));
  EXPECT_EQ(Statuses(), (Texts{"1:1", "2:-1", "2:1", "1:0"}));
  EXPECT_EQ(host_.Logged("Failed to prepare email notification file. (Profile Description: Bad)"),
            1);
}

TEST_F(NotifyServiceTest, ABlockedLaunchDoesNotHoldUpTheStop) {
  Open();
  programs_.OnRun([](const test::Arguments&) {
    test::ProgramEnd end;
    end.runsOn = true;
    return end;
  });
  StartWorker();
  Send(Event());
  ASSERT_TRUE(host_.WaitFor([&] { return programs_.Launches().size() == 2; }));
  Send(Event(1500000001));
  StopWorker();  // ends curl's wait; the second event is dropped unsent
  EXPECT_EQ(programs_.Launches().size(), 2u);
  EXPECT_EQ(Statuses(), (Texts{"1:1"}));  // an end that nobody saw is no delivery
}

TEST_F(NotifyServiceTest, UpdatesAreSavedPublishedAndReported) {
  Open();
  const std::size_t before = host_.Documents().size();
  Update("<tDVR Delta='1'>" + NotifyBlock("new body") + "</tDVR>");
  const auto documents = host_.Documents();
  ASSERT_EQ(documents.size(), before + 2);
  EXPECT_EQ(documents[before].text, test::ReadFile("notify.xml"));
  EXPECT_NE(documents[before].text.find("<body>new body</body>"), std::string::npos);
  EXPECT_EQ(Statuses(), (Texts{"1:-1"}));
  EXPECT_EQ(host_.Logged("Updated configuration successfully"), 1);
  // Nothing of it for documents that are no change, or none of this one's.
  for (const std::string& text :
       {std::string("<tDVR>") + NotifyBlock() + "</tDVR>",
        "<tDVR Delta='x'>" + NotifyBlock() + "</tDVR>",
        "<tDVR Delta='0'>" + NotifyBlock() + "</tDVR>", std::string("<tDVR Delta='1'/>"),
        "<other Delta='1'>" + NotifyBlock() + "</other>", std::string("<tDVR Delta='1'>"),
        std::string()}) {
    Update(text);
  }
  service_.ApplyUpdate(nullptr, 10);
  EXPECT_EQ(host_.Documents().size(), before + 2);
  EXPECT_NE(test::ReadFile("notify.xml").find("new body"), std::string::npos);
}

TEST_F(NotifyServiceTest, SecondReviewerModeIsSavedBothWays) {
  Open();
  const auto saved = [] { return test::ReadFile("notify.xml"); };
  Update("<tDVR Delta='0'><Users><SecondReviewer Enabled='1'/></Users></tDVR>");
  EXPECT_NE(saved().find("SupportsAttach=\"0\""), std::string::npos);
  EXPECT_NE(saved().find("attach=\"0\""), std::string::npos);
  Update("<tDVR Delta='0'><Users><SecondReviewer Enabled='0'/></Users></tDVR>");
  EXPECT_NE(saved().find("SupportsAttach=\"1\""), std::string::npos);
  EXPECT_EQ(host_.Logged("Disabled all attachments for second reviewer mode."), 1);
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
  EXPECT_EQ(host_.Log().size(), 3u);
  EXPECT_EQ(host_.Logged("Ignored an event document of the host: it is larger than 16 MiB"), 1);
  EXPECT_EQ(host_.Logged("Ignored a configuration document of the host: its elements are nested "
                         "more than 256 deep"),
            1);
}

TEST_F(NotifyServiceTest, EventsFramesTicksAndUpdatesMayComeAtOnce) {
  constexpr int kRounds = 60;
  Open();
  StartWorker();
  const std::string system =
      "<tDVR Delta='0'><Devices ID='65536'><Device Number='2'><Context Number='0'><Video>"
      "<Input Number='1'/></Video><Codec><Encoder><Channel Number='1' Standard='5'/></Encoder>"
      "</Codec></Context></Device></Devices><Events><Event ID='7' PreAlarm='1'>"
      "<Devices ID='65536'><Device Number='2'><Video><Input Number='1'/></Video></Device></Devices>"
      "<Action><Notify/></Action></Event></Events></tDVR>";
  std::string motion = Event();
  motion.replace(motion.find("ID='769' Type='3'"), 17, "ID='66049' Type='2'");
  std::vector<char> frames(3 * kRounds);
  std::atomic<std::size_t> taken{0};
  std::thread threads[] = {
      std::thread([&] {
        for (int i = 0; i < kRounds; ++i) Send(motion);
      }),
      std::thread([&] {
        for (int i = 0; i < kRounds; ++i) Send(Event());
      }),
      std::thread([&] {
        for (int i = 0; i < kRounds; ++i) {
          Update(i % 3 == 0 ? "<tDVR Delta='1'>" + NotifyBlock() + "</tDVR>" : system);
        }
      }),
      std::thread([&] {
        for (std::size_t i = 0; i < frames.size(); ++i) {
          if (service_.ReceiveFrame({66049, i % 10 == 0 ? 1u : 0u, 0, &frames[i], 1})) ++taken;
        }
      }),
      std::thread([&] {
        for (int i = 0; i < kRounds; ++i) service_.Tick();
      }),
  };
  for (std::thread& thread : threads) thread.join();
  const auto delivered = [&] {
    int count = 0;
    for (const std::string& status : Statuses()) count += status == "1:0";
    return count;
  };
  // Nothing that was accepted is lost: every event has its mail, parked ones at their deadline.
  secondsAhead_ = 1000;
  service_.Tick();
  EXPECT_TRUE(host_.WaitFor([&] { return delivered() == 2 * kRounds; })) << delivered();
}

}  // namespace
}  // namespace tvx
