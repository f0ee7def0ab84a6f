// The service with its worker, in a folder of its own, over a host whose programs are scripted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/algorithm/string.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/thread/exceptions.hpp>

#include <algorithm>
#include <atomic>
#include <deque>
#include <future>
#include <sstream>
#include <thread>

#include "base/clock.h"
#include "service/notify_service.h"
#include "support/documents.h"
#include "support/fake_host.h"
#include "support/fake_programs.h"
#include "support/table.h"
#include "support/temporary_folder.h"

namespace tvx::test {
namespace {

constexpr std::int32_t kCameras = 6;

std::string Gate(const std::string& body = "b") {
  return Profile(1, "attach='1' MaxVideoSeconds='30' description='Gate'",
                 "<to>t@x</to><cc>c@x</cc><bcc>d@x</bcc><body>" + body + "</body>") +
         Profile(2, "from='nobody' description='Yard'");
}
// An event of so many cameras; without one its mail goes out at once.
std::string Event(int number = 0, std::int32_t cameras = 0, std::int32_t profile = 1) {
  std::string sources = "<EventSource ID='769' Type='3'/>";
  for (std::int32_t i = 0; i < cameras; ++i) {
    sources += "<EventSource ID='" + std::to_string(Source(i + 1)) + "' Type='2'/>";
  }
  return EventDocument(
      EventEntry(profile, true, "Milliseconds='" + std::to_string(number) + "'", sources),
      "<Servers><Server Serial='A' Description='D' MAC='M'/></Servers>");
}
// All cameras. Their streams are still images, but for the last one's.
std::string Cameras() {
  std::string cameras, events;
  for (std::uint32_t i = 1; i <= kCameras; ++i) {
    cameras += Camera(i, std::to_string(i), i == kCameras ? 5 : 0);
    events += NotifyingEvent(i, i);
  }
  return SystemDocument(Devices(cameras) + "<Events>" + events + "</Events>");
}
std::string Reviewer(const char* enabled) {
  return SystemDocument("<Users><SecondReviewer Enabled='" + std::string(enabled) + "'/></Users>");
}

class ServiceTest : public testing::Test {
 protected:
  using Texts = std::vector<std::string>;
  static constexpr int kEndless = -1;

  ServiceTest() {
    programs_.OnRun([this](const Launch& launch) {
      if (launch.arguments.size() == 2) return ProgramEnd{0, version_, false, version_.empty()};
      mails_.push_back(*(launch.arguments.end() - 2));
      texts_.push_back(ReadFile(mails_.back()));
      EXPECT_TRUE(!awaitsFrames_ || host_.WaitFor([&] { return host_.FramesOut() == 0; }));
      const int exit = exits_.front();
      if (exits_.size() > 1) exits_.pop_front();
      return ProgramEnd{static_cast<std::uint32_t>(exit) << 8, "", false, exit == kEndless};
    });
    SetWallClock([this] { return std::int64_t{std::time(nullptr)} + secondsAhead_; });
  }
  ~ServiceTest() override {
    Stop();
    SetTickClock(MonotonicTick);
    SetWallClock({});
    EXPECT_EQ(host_.Problems(), Texts{});
  }

  void Open(const std::string& block = Notify(Gate())) {
    WriteFile("notify.xml", Root(block));
    service_.Open();
  }
  void Start() {
    worker_ = std::thread([this] { service_.RunWorker(); });
  }
  void Stop() {
    service_.Stop();
    channel_.Close();
    if (worker_.joinable()) worker_.join();
  }
  void Update(const std::string& text) { service_.ApplyUpdate(text.data(), text.size()); }
  void Send(const std::string& text) { service_.ReceiveEventDocument(text.data(), text.size()); }
  bool Frame(std::int32_t camera, std::size_t bytes = 1) {
    const void* const handle = host_.Lend(std::string(bytes, 'p'));
    const auto length = static_cast<std::uint32_t>(bytes);
    const bool taken = service_.ReceiveFrame({Source(camera), kKeyFrame, 0, handle, length});
    if (!taken) host_.TakeBack(handle);
    return taken;
  }
  bool HasStatuses(std::size_t count) {
    return host_.WaitFor([&] { return host_.Statuses().size() >= count; });
  }
  static bool Saved(const std::string& text) {
    return ReadFile("notify.xml").find(text) != std::string::npos;
  }
  static std::string Short(const Texts& paths) {
    return boost::replace_all_copy(boost::join(paths, " "), "./data/notify-mail-1-1500000000-", "");
  }
  static std::string Files() {
    Texts paths;
    for (const auto& file : boost::filesystem::directory_iterator("./data")) {
      paths.push_back(file.path().string());
    }
    std::sort(paths.begin(), paths.end());
    return Short(paths);
  }

  TemporaryFolder folder_;
  FakeHost host_;
  ProcessChannel channel_;
  std::string version_ = "curl 8\nProtocols: smtp smtps\nFeatures: SSL\n";
  std::atomic<bool> awaitsFrames_{false};  // each transfer, until all frames are back
  std::deque<int> exits_ = {0};            // of curl; the last one stays
  Texts mails_, texts_;                    // that were sent
  std::atomic<int> secondsAhead_{0};       // of the wall clock
  NotifyService service_{&FakeHost::Entry, channel_};
  FakePrograms programs_{host_, channel_};
  std::thread worker_;
};

TEST_F(ServiceTest, AFileThatCannotBeReplacedStaysAsItIs) {
  // A rejected one that cannot be kept aside, until the next change.
  ::mkdir("notify.xml.rejected", 0700);
  WriteFile("notify.xml.rejected/file", "");
  Open("mine");
  EXPECT_THAT(host_.Log()[0].text, testing::StartsWith("The rejected notify.xml could not be "));
  EXPECT_TRUE(Saved("mine"));
  Update(Change(Notify(Gate())));
  EXPECT_TRUE(Saved("description=\"Gate\""));
  // A line end takes six bytes in the file.
  Update(Change("<Notify ID='786432'><Web address='" + std::string(3'000'000, '\n') +
                "'/><Servers/><Profiles/></Notify>"));
  EXPECT_THAT(host_.Log().back().text,
              testing::StartsWith("Refused a change of the configuration,"));
  EXPECT_EQ(host_.Documents().size(), 4u);
}

TEST_F(ServiceTest, AFileThatCannotBeReadIsNeitherReplacedNorPublished) {
  const std::string why = "Too many levels of symbolic links";
  ASSERT_EQ(::symlink("notify.xml", "notify.xml"), 0);
  service_.Open();
  EXPECT_EQ(host_.Logged("notify.xml could not be read and stays as it is: " + why), 1);
  Update(Reviewer("1"));
  EXPECT_EQ(host_.Documents().size(), 1u);  // the registration
  Update(Change(Notify(Gate())));
  EXPECT_THAT(host_.Log().back().text, testing::EndsWith("holds until the server stops: " + why));
  EXPECT_EQ(host_.Documents().size(), 3u);
}

TEST_F(ServiceTest, ChangesAreSavedPublishedAndReported) {
  Open();
  EXPECT_EQ(host_.Log().at(0), (LogLine{25, "Loaded configuration from disk successfully"}));
  EXPECT_TRUE(Saved(" SSL=\"2\" "));
  EXPECT_EQ(host_.Documents()[1].text, ReadFile("notify.xml"));
  const std::string block = Notify(Gate("new"));
  for (const std::string& text :  // no change, or none of this one's
       {Root(block), Root(block, "Delta='x'"), SystemDocument(block), Change(""),
        std::string("<tDVR Delta='1'>"), Reviewer("0")}) {
    Update(text);
  }
  service_.ApplyUpdate(nullptr, 10);
  service_.ReceiveEventDocument(nullptr, 7);
  EXPECT_EQ(host_.Documents().size() + host_.Log().size(), 3u);
  Send(std::string(17u << 20, 'x'));
  Update(std::string(16u << 20, ' ') + block);
  for (const std::string kind : {"an event", "a configuration"}) {
    EXPECT_EQ(host_.Logged("Ignored " + kind + " document of the host: it is larger than 16 MiB"),
              1);
  }
  SetWallClock([] { return 4711; });
  for (const std::string delta : {"1", "-3"}) {
    Update(Root(Notify(Gate(delta)), "Delta='" + delta + "'"));
    EXPECT_TRUE(Saved("<body>" + delta + "</body>"));
    EXPECT_EQ(host_.Documents().rbegin()[1].text, ReadFile("notify.xml"));
    EXPECT_EQ(host_.Log().back(), (LogLine{25, "Updated configuration successfully"}));
    EXPECT_THAT(host_.Documents().back().text,
                testing::HasSubstr("<Profile ID=\"1\" Status=\"-1\" Time=\"4711\""));
  }
  Update(Reviewer("1"));
  EXPECT_TRUE(Saved("SupportsAttach=\"0\"") && Saved("attach=\"0\""));
  Update(Reviewer("0"));
  EXPECT_TRUE(Saved("SupportsAttach=\"1\""));
}

TEST_F(ServiceTest, TheNewestConfigurationIsPublishedLast) {
  version_ = "curl 8\nProtocols: smtp\nFeatures: SSL\n";
  Open();
  const auto change = [&](const char* body) { Update(Change(Notify(Gate(body)))); };
  std::string published;
  host_.OnDocument([&](const SentDocument& document) {
    const std::size_t at = document.text.find("<body>");
    published += at == std::string::npos ? "s" : document.text.substr(at + 6, 1);
    // While one is being published, the next ones come.
    if (published == "1") change("2");
    if (published == "1s2") std::thread([&] { change("3"), change("4"); }).join();
  });
  change("1");
  EXPECT_TRUE(Saved("<body>4</body>") && !Saved(" SSL=")) << "of a curl without smtps";
  change("4");  // which affects no profile
  EXPECT_EQ(published, "1s2s4ss4s") << "one at a time, each newer, each with a status";
  EXPECT_EQ(host_.Documents().back().text.find("<Profile "), std::string::npos);
}

TEST_F(ServiceTest, TheHostIsNeverCalledUnderTheIntakeMutex) {
  std::atomic<int> calls{0};
  host_.OnCall([&] {
    ++calls;
    auto other = std::async(std::launch::async, [&] { service_.Tick(); });
    EXPECT_EQ(other.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  });
  Open();
  Start();
  Update(Cameras());
  EXPECT_TRUE(Frame(1, 6 << 20) && Frame(1, 6 << 20));  // the first goes
  Send(EventDocument(EventEntry(1) + EventEntry(9) + EventEntry(1, true, "", "")));
  Update(Change(Notify(Gate(), "EmailSizeLimitMB='5'")));
  EXPECT_TRUE(Frame(1));
  Update(Reviewer("1"));  // and the streams are gone, and with them the frames
  Send(Event());
  EXPECT_TRUE(HasStatuses(3));
  EXPECT_EQ(host_.FramesOut(), 0u);
  Stop();
  EXPECT_GE(calls, 15);
}

// Three pictures of 400 KB do not fit into a message.
TEST_F(ServiceTest, SendsOneMessageForEachGroup) {
  awaitsFrames_ = true;
  Open(Notify(Gate("{source} {system name} {serial} {licensed mac} {weblink}"),
              "EmailSizeLimitMB='1'"));
  Start();
  std::size_t statuses = 0;
  for (const auto& row : Rows(Table(TABLES))) {
    SCOPED_TRACE(row[0] + " pictures, curl ends with " + row[1]);
    Update(Cameras());
    std::istringstream exits(row[1]);
    exits_.assign(std::istream_iterator<int>(exits), {});
    mails_.clear();
    const int pictures = std::stoi(row[0]);
    for (std::int32_t i = 1; i <= pictures; ++i) EXPECT_TRUE(Frame(i, 400 << 10));
    Send(Event(9, pictures));
    Update(SystemDocument(""));  // the histories are gone
    ASSERT_TRUE(HasStatuses(++statuses));
    EXPECT_EQ(host_.Statuses().back(), row[2]);
    ASSERT_FALSE(HasFailure());
    EXPECT_EQ(Short(mails_), row[3]);
    EXPECT_TRUE(host_.WaitFor([&] { return Files() == row[4]; })) << Files();
  }
  EXPECT_EQ(texts_[0],
            "From: f@x\r\nTo: t@x\r\nCc: c@x\r\nSubject: s\r\n\r\nTrigger Input 3-1 D A M "
            "[No Valid Web Server Address]");
}

TEST_F(ServiceTest, TheWorkerGoesByTheConfigurationOfToday) {
  ::mkdir("data", 0700);
  WriteFile("data/notify-mail-1-2-3-4", "left over");
  Open(Notify(Gate(), "MaxRetryQueue='7'"));
  Update(Cameras());
  for (std::int32_t i = 1; i <= kCameras; ++i) Frame(i);
  Start();
  Send(Event());
  ASSERT_TRUE(HasStatuses(1));  // and the worker waits
  Send(Event(1, kCameras));
  Send(Event(2, kCameras));
  Update(Change(Notify(Gate(), "MaxRetryQueue='1'")));
  Update(Reviewer("1"));
  exits_ = {7};
  secondsAhead_ = 1000;
  service_.Tick();
  ASSERT_TRUE(HasStatuses(3));
  EXPECT_TRUE(host_.WaitFor([&] { return Files() == "2-1"; })) << "the newer one: " << Files();
  EXPECT_EQ(texts_[1].find("image"), std::string::npos);
  EXPECT_EQ(host_.Logged("Attachments will be omitted for \"Gate\""), 2);
}

TEST_F(ServiceTest, FailuresAreReportedAndANewConfigurationClearsWhatWaits) {
  std::size_t statuses = 0;
  const auto send = [&](int number, int exit, std::int32_t profile = 1) {
    exits_ = {exit};
    Send(Event(number, 0, profile));
    ASSERT_TRUE(HasStatuses(++statuses));
  };
  const char* const cleared =
      "Clearing retry notifications queue. 1 failed notifications will be discarded";
  Open();
  Start();
  send(0, 0);
  Update(Change(Notify(Gate(), "MaxRetrySeconds='99'")));
  send(1, 67);
  send(2, 7);
  send(3, 0, 2);
  EXPECT_EQ(Files(), "2-0");
  EXPECT_EQ(host_.Logged(cleared), 0);
  Update(Change(Notify(Gate(), "MaxRetrySeconds='98'")));
  ASSERT_TRUE(host_.WaitFor([&] { return host_.Logged(cleared) == 1; }));
  send(4, 7);
  Update(Cameras());
  send(5, 0);
  EXPECT_EQ(Files(), "4-1");
  boost::filesystem::remove_all("data");
  WriteFile("data", "no folder");
  send(6, 0);
  EXPECT_EQ(host_.Statuses(), (Texts{"1:0", "1:1", "1:1", "2:1", "1:1", "1:0", "1:1"}));
  EXPECT_EQ(host_.Logged("Failed to prepare email notification file. (Profile Description: Yard)"),
            1);
  EXPECT_EQ(host_.Log().back(),
            (LogLine{75, "Unable to create data directory: \"" + folder_.Path() + "/data\""}));
}

TEST_F(ServiceTest, ABrokenLockEndsTheWorkerAndItsWatchdog) {
  Open();
  Send(Event());
  host_.OnDocument([](const SentDocument&) { throw boost::lock_error(); });
  EXPECT_THROW(service_.RunWorker(), boost::lock_error);
  service_.RunWatchdog();  // returns at once
}

TEST_F(ServiceTest, TicksCountTheTurnsOfTheClockForTheThrottle) {
  SetTickClock([] { return 0u; });
  Open(Notify(Profile(1, "ThrottleSeconds='10'")));
  Send(Event(1));
  SetTickClock([] { return 0x80000000u; });
  service_.Tick();
  SetTickClock([] { return 0u; });
  Send(Event(2));
  Start();
  EXPECT_TRUE(HasStatuses(2));
}

TEST_F(ServiceTest, ABlockedLaunchDoesNotHoldUpTheStop) {
  Open();
  exits_ = {kEndless};
  Start();
  std::thread watchdog([&] { service_.RunWatchdog(); });
  Send(Event());
  ASSERT_TRUE(host_.WaitFor([&] { return programs_.Launches().size() == 2; }));
  Send(Event(1));
  Stop();  // ends curl's wait; the second event is dropped unsent
  watchdog.join();
  EXPECT_EQ(programs_.Launches().size(), 2u);
  EXPECT_EQ(host_.Statuses(), (Texts{"1:1"})) << "an end that nobody saw is no delivery";
}

TEST_F(ServiceTest, ACurlThatHangsDoesNotHoldUpTheStart) {
  version_.clear();
  service_.Open(boost::chrono::milliseconds(10));
  EXPECT_THAT(host_.Log()[0].text, testing::StartsWith("./curl -V does not end."));
  EXPECT_FALSE(Saved("SSL="));
}

TEST_F(ServiceTest, NothingMoreIsWrittenOnceTheHostStops) {
  Open(Notify(Gate(), "EmailSizeLimitMB='1'"));
  Update(Cameras());
  for (std::int32_t i = 1; i <= 5; ++i) EXPECT_TRUE(Frame(i, 400 << 10));
  Send(Event(9, 5));
  ::mkdir("data", 0700);
  ::mkdir("data/notify-mail-1-1500000000-9-0", 0700);  // a message that is composed would fail
  host_.OnCall([&] {
    if (FileExists("data/1.jpg")) service_.Stop(), channel_.Close();
  });
  service_.RunWorker();
  EXPECT_FALSE(FileExists("data/3.jpg") || FileExists("data/1.jpg"));
  const auto log = host_.Log();
  EXPECT_EQ(log.size(), 6u);  // with two pictures and one attempt
  EXPECT_EQ(log[4].text,
            "Failed to execute curl smtp operation using server Main. (Profile Description: Gate)");
}

TEST_F(ServiceTest, AStopEndsTheWaitForAWebServer) {
  boost::asio::io_context context;
  boost::asio::ip::tcp::acceptor silent(context, {boost::asio::ip::address_v4::loopback(), 0});
  const std::string port = std::to_string(silent.local_endpoint().port());
  Open(boost::replace_first_copy(Notify(Gate("{weblink}")), "<Servers>",
                                 "<Web address='127.0.0.1:" + port + "'/><Servers>"));
  Start();
  Send(Event());
  EXPECT_TRUE(HasStatuses(1));
  EXPECT_THAT(texts_[0], testing::EndsWith("[Not a Video Source Event]"));
  Send(EventDocument(EventEntry(1)));
  const auto asked = silent.accept();
  Stop();
  EXPECT_THAT(testing::PrintToString(host_.Log()), testing::HasSubstr("125: Operation canceled"));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which keep it
TEST_F(ServiceTest, TheMemoryOfALargeDocumentIsGivenBack) {
  const auto resident = [] {
    const std::string sizes = ReadFile("/proc/self/statm");
    return std::stol(sizes.substr(sizes.find(' '))) >> 8;  // MiB
  };
  std::string entries;
  for (int i = 0; i < 60'000; ++i) entries += "<Other a='1'><b/></Other>";
  const std::string document = Change(entries);
  const auto before = resident();
  Update(document);
  EXPECT_LE(resident(), before + 4);
}
#endif

TEST_F(ServiceTest, WhatWasAcceptedIsNotLostWithWhatFailed) {
  Open();
  Start();
  int calls = 0;
  SetTickClock([&]() -> std::uint32_t { return ++calls == 2 ? throw std::bad_alloc() : 0; });
  EXPECT_THROW(Send(EventDocument(EventEntry(1, true, "", "") + EventEntry(1, true, "", ""))),
               std::bad_alloc);
  EXPECT_TRUE(HasStatuses(1));
  Stop();
  SetTickClock(MonotonicTick);
  // Nor is the turn of whoever publishes.
  host_.OnDocument([](const SentDocument&) { throw std::bad_alloc(); });
  EXPECT_THROW(Update(Change(Notify(Gate("lost")))), std::bad_alloc);
  host_.OnDocument(nullptr);
  Update(Change(Notify(Gate("kept"))));
  EXPECT_TRUE(Saved("kept"));
  EXPECT_EQ(host_.Documents().size(), 7u) << "a status of both changes";
}

TEST_F(ServiceTest, TooManyNotificationsEndUnsent) {
  Open();
  Update(Cameras());
  Frame(kCameras);
  const auto send = [&](int count, const std::string& sources) {
    std::string entries;
    for (int i = 0; i < count; ++i) entries += EventEntry(1, true, "", sources);
    Send(EventDocument(entries));
    return host_.Statuses().size();
  };
  const std::string parks = "<EventSource ID='" + std::to_string(Source(kCameras)) + "' Type='2'/>";
  EXPECT_EQ(send(20'000, parks), 0u);
  EXPECT_EQ(send(1, parks), 1u) << "the oldest that is parked";
  EXPECT_EQ(send(1, ""), 2u) << "one that goes to the queue before those";
  EXPECT_EQ(host_.Statuses(), (Texts{"1:1", "1:1"}));
  const char* const line =
      "More than 20000 notifications wait to be sent. The oldest ones will not be sent";
  EXPECT_EQ(host_.Logged(line), 1);
}

TEST_F(ServiceTest, EventsFramesTicksAndUpdatesMayComeAtOnce) {
  Open();
  Start();
  std::vector<std::thread> threads;
  for (const auto& action : std::vector<std::function<void(int)>>{
           [&](int) { Send(EventDocument(EventEntry(1))); }, [&](int i) { Send(Event(i)); },
           [&](int i) { Update(i % 3 == 0 ? Change(Notify(Gate())) : Cameras()); },
           [&](int) { Frame(1), Frame(2), Frame(3); }, [&](int) { service_.Tick(); }}) {
    threads.emplace_back([action] {
      for (int i = 0; i < 60; ++i) action(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  secondsAhead_ = 1000;  // every event has its mail, parked ones at their deadline
  service_.Tick();
  EXPECT_TRUE(HasStatuses(120));
  EXPECT_EQ(host_.Statuses(), Texts(120, "1:0"));
}

TEST(Watchdog, SendsAnEventEachIntervalUntilTheWorkerEnds) {
  for (const auto& [returned, status] : {std::pair{3, 7}, {0, 7}, {3, 0}, {0, 0}}) {
    FakeHost host;
    host.Answer(HostCommand::Watchdog, returned, static_cast<std::uint32_t>(status));
    Watchdog watchdog(&FakeHost::Entry);
    testing::internal::CaptureStderr();
    std::thread often([&] { watchdog.Run(boost::chrono::milliseconds(5)); });
    std::thread never([&] { watchdog.Run(boost::chrono::hours(1)); });
    EXPECT_TRUE(host.WaitFor([&] { return host.WatchdogEvents() >= 2; }));
    watchdog.MarkStopped();  // wakes both
    often.join();
    never.join();
    std::ostringstream line;
    line << "NotifyPI: watch dog event ret " << returned << " error " << status;
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::StartsWith(returned + status == 0 ? "" : line.str() + line.str()));
  }
}

}  // namespace
}  // namespace tvx::test
