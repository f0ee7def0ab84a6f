#include "faults/road.h"

#include <algorithm>
#include <atomic>
#include <boost/filesystem.hpp>
#include <cstdlib>
#include <iterator>
#include <map>
#include <optional>

#include "base/clock.h"
#include "support/documents.h"
#include "support/fake_programs.h"
#include "support/plugin_driver.h"
#include "support/temporary_folder.h"

namespace tvx::faults {
namespace {

namespace fs = boost::filesystem;
using namespace std::string_literals;

constexpr std::int32_t kAlarm = 1;  // the profile whose notification meets the fault
constexpr std::int32_t kNext = 2;   // the profile whose notification comes after it

constexpr std::uint32_t kGate = 2;  // devices: a camera with H.264, one with pictures
constexpr std::uint32_t kYard = 3;

constexpr std::uint32_t kCouldNotConnect = 7u << 8;  // wait statuses of curl
constexpr std::uint32_t kCouldNotRead = 26u << 8;

constexpr std::uint32_t kWarning = 50;  // what a log line needs to be seen

// The time that passes at each look at a queued message. All of them together are shorter than the
// time for which a message is retried.
constexpr std::uint32_t kRetryStep = 30'000;

std::string Configuration(bool withVideo, const std::string& subject) {
  std::string profiles;
  for (const std::int32_t id : {kAlarm, kNext}) {
    profiles += test::Profile(
        id,
        "attach='"s + (withVideo ? "1" : "0") +
            "' MaxVideoSeconds='2' description='A profile with a long description' "
            "from='Sender &lt;from@mail.example&gt;' subject='" +
            subject + " {source}'",
        "<to>to@mail.example</to><cc>cc@mail.example</cc><body>{event type} {event state} at "
        "{system name}\nThe end</body>");
  }
  return test::Change(test::Notify(profiles, "MaxRetrySeconds='864000'"));
}

std::string Cameras(const std::string& prefix) {
  return test::SystemDocument(test::Devices(test::Camera(kGate, prefix + "Gate", 5) +
                                            test::Camera(kYard, prefix + "Yard", 0)) +
                              "<Events>" + test::NotifyingEvent(7, kGate) +
                              test::NotifyingEvent(8, kYard) + "</Events>");
}

// A stream of H.264 as an encoder writes it, of 64 by 64 black pixels.
std::string MoviePayload(bool isKey) {
  const std::string head = "\0\0\0\1\x67\x42\xC0\x0A\xDA\x10\x99\0\0\0\1\x68\xCE\x38\x80"s;
  return (isKey ? head + "\0\0\0\1\x65\x88"s : "\0\0\0\1\x41\x9A"s) + std::string(2000, 'x');
}

const std::string kPicture = "\xFF\xD8\xFF" + std::string(9000, 'p') + "\xFF\xD9";

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

long FilesIn(const fs::path& folder) {
  if (!fs::exists(folder)) return 0;
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

// The fault that a run is about, and what it may leave undone.
struct Fault {
  Kind kind;
  bool hasStruck = false;
};

// One life of the plug-in, from Load to Unload, in the current folder.
class Run {
 public:
  explicit Run(Road road) : road_(road) {
    SetTickClock([this] { return 1'000'000 + milliseconds_; });
    SetWallClock([this] { return std::int64_t{1'500'000'000} + milliseconds_ / 1000; });
    test::WriteFile("notify.xml", Configuration(HasVideo(), "First subject"));
    driver_.emplace(host_, test::LinkedExports());
    programs_.emplace(host_, [this](const std::string& chunk) { driver_->Report(chunk); });
    programs_->OnRun([this](const test::Launch& launch) { return Curl(launch); });
    driver_->Open();
    if (HasVideo()) driver_->Update(Cameras(""));
  }

  // The road itself, in reach of the fault.
  void NotifyOfAlarm() {
    isUpdated_ = road_ == Road::Plain && driver_->Update(Configuration(false, "Second subject"));
    if (HasVideo()) SendFrames(4);
    if (road_ == Road::Retry) failures_ = 1;
    isAlarmTaken_ = SendEvent(kAlarm);
    if (HasVideo()) CompleteClips();
    driver_->StartLoops();
    if (!isAlarmTaken_) return;
    if (!host_.WaitFor([&] { return !Statuses(kAlarm).empty(); })) {
      host_.AddProblem("nothing was ever reported of the alarm");
    }
    if (HasLogged("This message will be retried")) WaitForRetry();
    // The files go after the report. A fault that has struck is over in any case.
    host_.WaitFor([] { return HasStruck() || FilesIn("data") == 0; });
  }

  // The one after it, which must not feel anything of it.
  void NotifyOfNext() {
    failures_ = 0;
    // Other names, so that it does not put its own files in the place of one that was left over.
    if (HasVideo()) driver_->Update(Cameras("Next "));
    if (HasVideo()) SendFrames(4);
    if (!SendEvent(kNext)) host_.AddProblem("the next event was refused");
    if (HasVideo()) CompleteClips();
    host_.WaitFor([&] { return !Statuses(kNext).empty(); });
  }

  void LeaveUnfinished() {
    driver_->StartLoops();
    NotifyOfNext();
    host_.WaitFor([] { return FilesIn("data") == 0; });
    SendEvent(kAlarm);
  }

  // Close and Unload. What is against the rules of the border is known then.
  std::vector<std::string> End() {
    driver_->Close();
    programs_.reset();
    driver_->Unload();
    return host_.Problems();
  }

  bool IsDelivered() const { return delivered_.count(kAlarm) != 0; }

  void CheckMail(const Fault& fault) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::vector<std::string>& alarm = delivered_[kAlarm];
    if (alarm.size() > 1) host_.AddProblem("the alarm was delivered more than once");
    if (alarm.empty() && !IsFailureKnown()) host_.AddProblem("the alarm was lost without a word");
    for (const std::string& message : alarm) CheckMessage(message, !fault.hasStruck);
    if (!fault.hasStruck && alarm.empty()) host_.AddProblem("the alarm was not delivered");
    if (alarm.empty()) delivered_.erase(kAlarm);
    if (delivered_[kNext].size() != 1) host_.AddProblem("the next notification was not delivered");
    for (const std::string& message : delivered_[kNext]) CheckMessage(message, true);
  }

  // Once all has ended: then nobody still has a file to remove.
  void CheckFiles(const Fault& fault, std::vector<std::string>& findings) const {
    // A file whose removal is what failed stays.
    if (FilesIn("data") > (fault.hasStruck && fault.kind == Kind::Remove ? 1 : 0)) {
      for (const fs::directory_entry& entry : fs::directory_iterator("data")) {
        findings.push_back("left over: " + entry.path().string());
      }
    }
    const std::string configuration = test::ReadFile("notify.xml");
    const bool isOld = configuration.find("First subject") != std::string::npos;
    const bool isNew = configuration.find("Second subject") != std::string::npos;
    if (isOld == isNew || !EndsWith(configuration, "</tDVR>\n")) {
      findings.push_back("notify.xml is not whole");
    }
    if (!fault.hasStruck && isUpdated_ != isNew) findings.push_back("notify.xml was not saved");
    if (fs::exists("notify.xml.new")) findings.push_back("left over: notify.xml.new");
  }

 private:
  bool HasVideo() const { return road_ == Road::Video || road_ == Road::End; }

  bool SendEvent(std::int32_t profile) {
    return driver_->Event(test::EventDocument(
        test::EventEntry(profile, true, "Time='" + std::to_string(1'500'000'000 + profile) + "'",
                         "<EventSource ID='66049' Type='2'/><EventSource ID='66305' Type='2'/>"),
        "<Servers><Server Serial='A-1001' Description='The main building of the "
        "site'/></Servers>"));
  }

  void SendFrames(int count) {
    for (int i = 0; i < count; ++i) {
      milliseconds_ += 250;
      driver_->Frame(test::Source(kGate), i % 4 == 0, MoviePayload(i % 4 == 0));
      driver_->Frame(test::Source(kYard), true, kPicture);
    }
  }

  // By their frames, or where these fail, by the ticks behind their deadline.
  void CompleteClips() {
    SendFrames(12);
    for (int i = 0; i < 4; ++i) {
      milliseconds_ += 3000;
      driver_->Tick();
    }
  }

  // Plays curl: it says what it can do, or takes its input and transfers a file.
  test::ProgramEnd Curl(const test::Launch& launch) {
    const test::Arguments& arguments = launch.arguments;
    if (arguments.back() == "-V") return {0, "Protocols: smtp smtps\n"};
    if (!programs_->AwaitInput(launch)) {
      host_.AddProblem("a program was left waiting for its input");
      return {};
    }
    const auto file = std::find(arguments.begin(), arguments.end(), "-T");
    const std::uint32_t status = Transfer(file == arguments.end() ? "" : *(file + 1));
    return {status, status == 0 ? "" : "curl: the transfer failed, said at some length\n"};
  }

  std::uint32_t Transfer(const std::string& path) {
    if (!test::FileExists(path)) return kCouldNotRead;
    if (failures_ > 0) {
      --failures_;
      return kCouldNotConnect;
    }
    const std::size_t id = path.find("notify-mail-") + std::string("notify-mail-").size();
    const std::lock_guard<std::mutex> lock(mutex_);
    delivered_[std::atoi(path.c_str() + id)].push_back(test::ReadFile(path));
    return 0;
  }

  // Time passes until the message has gone out and that has been reported.
  void WaitForRetry() {
    const bool sent = host_.WaitFor([&] {
      milliseconds_ += kRetryStep;
      const std::lock_guard<std::mutex> lock(mutex_);
      return delivered_.count(kAlarm) != 0;
    });
    if (!sent) return host_.AddProblem("the queued message was never sent");
    host_.WaitFor([&] { return Statuses(kAlarm).back() == '0' || HasLogged("(retry)"); });
  }

  // What became of a profile's notifications, as it was reported: a digit each.
  std::string Statuses(std::int32_t profile) const {
    std::string digits;
    for (const std::string& status : host_.Statuses()) {
      if (std::atoi(status.c_str()) == profile) digits += status.back();
    }
    return digits;
  }

  bool HasLogged(const std::string& text) const {
    const auto log = host_.Log();
    return std::any_of(log.begin(), log.end(), [&](const test::LogLine& line) {
      return line.level >= kWarning && line.text.find(text) != std::string::npos;
    });
  }

  // Whether somebody can know that there will be no mail: the host, as its call threw, or the
  // administrator.
  bool IsFailureKnown() const {
    const std::string statuses = Statuses(kAlarm);
    return !isAlarmTaken_ || (!statuses.empty() && statuses.back() == '1' && HasLogged(""));
  }

  // A message is never sent in part.
  void CheckMessage(const std::string& message, bool needsAttachments) {
    const bool isMultipart = message.find("multipart/mixed") != std::string::npos;
    if (!EndsWith(message, isMultipart ? "--\r\n" : "The end")) {
      host_.AddProblem("a message was sent that is not whole");
    }
    if (!needsAttachments || !HasVideo()) return;
    for (const char* name : {"Gate.mov\"\r\n", "Yard.jpg\"\r\n"}) {
      if (message.find(name) == std::string::npos) {
        host_.AddProblem("an attachment is missing: "s + name);
      }
    }
  }

  const Road road_;
  test::FakeHost host_;
  std::optional<test::PluginDriver> driver_;
  std::optional<test::FakePrograms> programs_;
  std::atomic<std::uint32_t> milliseconds_{0};
  std::atomic<int> failures_{0};  // how many of the coming transfers fail for now
  bool isUpdated_ = false;
  bool isAlarmTaken_ = false;
  std::mutex mutex_;
  std::map<std::int32_t, std::vector<std::string>> delivered_;  // what a profile's mails were
};

}  // namespace

RoadOutcome TakeRoad(Road road, Kind kind, unsigned n) {
  const test::TemporaryFolder folder;
  const long descriptors = FilesIn("/proc/self/fd");
  RoadOutcome outcome;
  {
    Fault fault{kind};
    Run run(road);
    if (road == Road::End) {
      run.LeaveUnfinished();
      Arm(kind, n);
      outcome.findings = run.End();
      fault.hasStruck = HasStruck();
    } else {
      Arm(kind, n);
      run.NotifyOfAlarm();
      Disarm();
      fault.hasStruck = HasStruck();
      run.NotifyOfNext();
      run.CheckMail(fault);
      outcome.findings = run.End();
    }
    run.CheckFiles(fault, outcome.findings);
    outcome.hasStruck = fault.hasStruck;
    outcome.isDelivered = run.IsDelivered();
  }
  if (FilesIn("/proc/self/fd") != descriptors) outcome.findings.push_back("a descriptor leaked");
  return outcome;
}

}  // namespace tvx::faults
