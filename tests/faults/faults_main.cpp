// Every single fault of memory and disk on the roads of a notification.
//
//   faults ROAD              every fault on the road
//   faults ROAD KIND NUMBER  one fault (KIND 0 to 4: allocation, write, open, rename, removal)
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <boost/filesystem.hpp>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/clock.h"
#include "faults/fault_points.h"
#include "support/documents.h"
#include "support/fake_programs.h"
#include "support/plugin_driver.h"
#include "support/temporary_folder.h"

namespace tvx::faults {
namespace {

enum class Road {
  Plain,  // a change of the configuration, an event, a message
  Video,  // frames of two cameras, an event with clips, a message with a movie and a picture
  Retry,  // an event, a message that is not accepted at first
  End,    // Close and Unload while a notification waits for its clips
};

// How a run ended: without a fault, as the road has fewer such calls; with it, the alarm delivered in
// spite of it, or its loss told; else something was broken.
enum Status { kDelivered, kBroken, kClean, kTold };

constexpr const char* kNames[] = {"allocations", "writes", "opens", "renames", "removals"};

namespace fs = boost::filesystem;
using namespace std::string_literals;

constexpr std::int32_t kAlarm = 1;  // the profile whose notification meets the fault
constexpr std::int32_t kNext = 2;   // the profile whose notification comes after it

constexpr std::uint32_t kGate = 2, kYard = 3;  // devices: a camera with H.264, one with pictures

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
  return fs::exists(folder) ? std::distance(fs::directory_iterator(folder), {}) : 0;
}

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
    if (road_ != Road::Plain) driver_->Open();
    if (HasVideo()) driver_->Update(Cameras(""));
  }

  // The road itself, in reach of the fault.
  void NotifyOfAlarm() {
    if (road_ == Road::Plain) {
      driver_->Open();
      driver_->Update(Configuration(false, "Second subject"));
    }
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

  void CheckMail() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::vector<std::string>& alarm = delivered_[kAlarm];
    if (alarm.size() > 1) host_.AddProblem("the alarm was delivered more than once");
    if (alarm.empty() && !IsFailureKnown()) host_.AddProblem("the alarm was lost without a word");
    for (const std::string& message : alarm) CheckMessage(message, !HasStruck());
    if (!HasStruck() && alarm.empty()) host_.AddProblem("the alarm was not delivered");
    if (alarm.empty()) delivered_.erase(kAlarm);
    if (delivered_[kNext].size() != 1) host_.AddProblem("the next notification was not delivered");
    for (const std::string& message : delivered_[kNext]) CheckMessage(message, true);
  }

  // Once all has ended: then nobody still has a file to remove.
  void CheckFiles(Kind kind, std::vector<std::string>& findings) const {
    // A file whose removal is what failed stays.
    if (FilesIn("data") > (HasStruck() && kind == Kind::Remove ? 1 : 0)) {
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
    if (!HasStruck() && (road_ == Road::Plain) != isNew)
      findings.push_back("notify.xml was not saved");
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
    for (const fs::directory_entry& entry : fs::directory_iterator("data")) {
      if ((entry.status().permissions() & 077) != 0) host_.AddProblem("anybody can read a file");
    }
    if (!test::FileExists(path)) return 26u << 8;
    if (failures_ > 0) {
      --failures_;
      return 7u << 8;
    }
    const std::size_t id = path.find("notify-mail-") + std::string("notify-mail-").size();
    const std::lock_guard<std::mutex> lock(mutex_);
    delivered_[std::atoi(path.c_str() + id)].push_back(test::ReadFile(path));
    return 0;
  }

  // Time passes until the message has gone out and that has been reported.
  void WaitForRetry() {
    const bool sent = host_.WaitFor([&] {
      milliseconds_ += 30'000;  // all of it is shorter than the time for which it is retried
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
      return line.level > 25 && line.text.find(text) != std::string::npos;
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
  bool isAlarmTaken_ = false;
  std::mutex mutex_;
  std::map<std::int32_t, std::vector<std::string>> delivered_;  // what a profile's mails were
};

// Lets the n-th call of the kind fail on the road, and looks whether all that must hold does.
Status TakeRoad(Road road, Kind kind, unsigned n) {
  const test::TemporaryFolder folder;
  const long descriptors = FilesIn("/proc/self/fd");
  std::vector<std::string> findings;
  Status status{};
  {
    Run run(road);
    if (road == Road::End) {
      run.LeaveUnfinished();
      Arm(kind, n);
    } else {
      Arm(kind, n);
      run.NotifyOfAlarm();
      Disarm();
      run.NotifyOfNext();
      run.CheckMail();
    }
    findings = run.End();
    run.CheckFiles(kind, findings);
    status = !HasStruck() ? kClean : run.IsDelivered() ? kDelivered : kTold;
  }
  if (FilesIn("/proc/self/fd") != descriptors) findings.push_back("a descriptor leaked");
  for (const std::string& finding : findings) {
    std::fprintf(stderr, "%s, number %u: %s\n", kNames[static_cast<int>(kind)], n, finding.c_str());
  }
  return findings.empty() ? status : kBroken;
}

constexpr std::size_t kProcesses = 8;  // most of a road's time is spent waiting
constexpr unsigned kLongest = 120;     // a run that takes so many seconds hangs
constexpr unsigned kCleanRuns = 3;     // the end of the road is behind so many without a strike
constexpr unsigned kTooMany = 2000;    // what is broken without a fault would be without end

// How many runs ended so.
using Counts = std::map<int, unsigned>;

// Each run is a process of its own, several at a time, so that one that dies or hangs is a finding
// among others.
Counts SweepKind(Road road, Kind kind) {
  std::map<pid_t, unsigned> running;
  Counts counts;
  unsigned clean = 0;
  const auto await = [&] {
    int status = 0;
    const auto ended = running.find(::wait(&status));
    if (WIFSIGNALED(status)) {
      std::fprintf(stderr, "%s, number %u: ended by signal %d\n", kNames[static_cast<int>(kind)],
                   ended->second, WTERMSIG(status));
    }
    running.erase(ended);
    const int outcome = WIFEXITED(status) ? WEXITSTATUS(status) : kBroken;
    clean = outcome == kClean ? clean + 1 : 0;
    ++counts[outcome];
  };
  for (unsigned n = 1; clean < kCleanRuns && n < kTooMany; ++n) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child < 0) std::abort();  // no process can be had
    if (child == 0) {
      ::alarm(kLongest);
      ::_exit(TakeRoad(road, kind, n));
    }
    running.emplace(child, n);
    if (running.size() == kProcesses) await();
  }
  while (!running.empty()) await();
  return counts;
}

// Prints every finding on standard error and, at the end, the count of faults on standard output.
bool SweepRoad(Road road, const std::string& name) {
  std::printf("faults: %s:", name.c_str());
  Counts all;
  for (const Kind kind : kKinds) {
    unsigned struck = 0;
    for (const auto& [outcome, count] : SweepKind(road, kind)) {
      all[outcome] += count;
      if (outcome != kClean) struck += count;
    }
    std::printf(" %u %s,", struck, kNames[static_cast<int>(kind)]);
  }
  std::printf(" %u not survived (alarm delivered in %u, its loss told in %u)\n", all[kBroken],
              all[kDelivered], all[kTold]);
  return all[kBroken] == 0;
}

}  // namespace
}  // namespace tvx::faults

int main(int argc, char** argv) {
  using namespace tvx::faults;
  tvx::test::Crossing::note = NoteSide;
  const std::map<std::string, Road> roads = {
      {"plain", Road::Plain}, {"video", Road::Video}, {"retry", Road::Retry}, {"end", Road::End}};
  const auto road = roads.find(argc > 1 ? argv[1] : "");
  if (road == roads.end() || (argc != 2 && argc != 4)) {
    std::fputs("usage: faults plain|video|retry|end [KIND NUMBER]\n", stderr);
    return 2;
  }
  if (argc == 2) return SweepRoad(road->second, road->first) ? 0 : 1;
  const auto kind = static_cast<Kind>(std::atoi(argv[2]));
  return TakeRoad(road->second, kind, static_cast<unsigned>(std::atoi(argv[3]))) != kBroken ? 0 : 1;
}
