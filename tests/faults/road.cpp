#include "faults/road.h"

#include <boost/filesystem.hpp>
#include <iterator>
#include <memory>

#include "faults/plugin_life.h"
#include "support/temporary_folder.h"

namespace tvx::faults {
namespace {

namespace fs = boost::filesystem;

// What a log line needs to be seen: a warning.
constexpr std::uint32_t kWarning = 50;

// The time that passes at each look at a queued message. All of them together are shorter than the
// time for which a message is retried.
constexpr std::uint32_t kRetryStep = 30'000;

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

class Run {
 public:
  Run(Road road, Findings& findings)
      : road_(road),
        findings_(findings),
        life_(std::make_unique<PluginLife>(HasVideo(), findings)) {}

  // The road itself, in reach of the fault.
  void NotifyOfAlarm() {
    isUpdated_ = road_ == Road::Plain && life_->SendUpdate("Second subject");
    if (HasVideo()) SendFrames(4);
    if (road_ == Road::Retry) life_->FailTransfers(1);
    isAlarmTaken_ = life_->SendEvent(kAlarm);
    if (HasVideo()) CompleteClips();
    life_->StartLoops();
    if (!isAlarmTaken_) return;
    if (!life_->WaitFor([&] { return !life_->Statuses(kAlarm).empty(); })) {
      findings_.Add("nothing was ever reported of the alarm");
    }
    if (life_->HasLogged(kWarning, "This message will be retried")) WaitForRetry();
    // The files go after the report. A fault that has struck is over in any case.
    life_->WaitFor([] { return HasStruck() || FilesIn("data") == 0; });
  }

  void LeaveUnfinished() {
    life_->StartLoops();
    NotifyOfNext();
    life_->WaitFor([] { return FilesIn("data") == 0; });
    life_->SendEvent(kAlarm);
  }

  bool IsDelivered() const { return isDelivered_; }

  // Close and Unload.
  void End() { life_.reset(); }

  // The one after it, which must not feel anything of it.
  void NotifyOfNext() {
    life_->FailTransfers(0);
    // Other names, so that it does not put its own files in the place of one that was left over.
    if (HasVideo()) life_->SendSystemDocument("Next ");
    if (HasVideo()) SendFrames(4);
    if (!life_->SendEvent(kNext)) findings_.Add("the next event was refused");
    if (HasVideo()) CompleteClips();
    life_->WaitFor([&] { return !life_->Statuses(kNext).empty(); });
  }

  void CheckMail(const Fault& fault) {
    const std::vector<std::string> alarm = life_->Delivered(kAlarm);
    const std::vector<std::string> next = life_->Delivered(kNext);
    isDelivered_ = !alarm.empty();
    for (const std::string& message : alarm) CheckWhole(message);
    if (alarm.size() > 1) findings_.Add("the alarm was delivered more than once");
    if (alarm.empty() && !IsFailureKnown()) findings_.Add("the alarm was lost without a word");
    if (!fault.hasStruck && alarm.size() != 1) findings_.Add("the alarm was not delivered");
    if (!fault.hasStruck) CheckComplete(alarm);
    if (next.size() != 1) findings_.Add("the next notification was not delivered");
    CheckComplete(next);
  }

  // Once all has ended: then nobody still has a file to remove.
  void CheckFiles(const Fault& fault) {
    // A file whose removal is what failed stays.
    const long allowed = fault.hasStruck && fault.kind == Kind::Remove ? 1 : 0;
    if (FilesIn("data") > allowed) {
      for (const fs::directory_entry& entry : fs::directory_iterator("data")) {
        findings_.Add("left over: " + entry.path().string());
      }
    }
    const std::string configuration = test::ReadFile("notify.xml");
    const bool isOld = configuration.find("First subject") != std::string::npos;
    const bool isNew = configuration.find("Second subject") != std::string::npos;
    if (isOld == isNew || !EndsWith(configuration, "</tDVR>\n")) {
      findings_.Add("notify.xml is not whole");
    }
    if (!fault.hasStruck && isUpdated_ != isNew) findings_.Add("notify.xml was not saved");
    if (fs::exists("notify.xml.new")) findings_.Add("left over: notify.xml.new");
  }

 private:
  bool HasVideo() const { return road_ == Road::Video || road_ == Road::End; }

  void SendFrames(int count) {
    for (int i = 0; i < count; ++i) {
      life_->Pass(250);
      life_->SendFrame(kMovieStream, i % 4 == 0);
      life_->SendFrame(kPictureStream, true);
    }
  }

  // By their frames, or where these fail, by the ticks behind their deadline.
  void CompleteClips() {
    SendFrames(12);
    for (int i = 0; i < 4; ++i) {
      life_->Pass(3000);
      life_->Tick();
    }
  }

  // Time passes until the message has gone out and that has been reported.
  void WaitForRetry() {
    const bool sent = life_->WaitFor([&] {
      life_->Pass(kRetryStep);
      return !life_->Delivered(kAlarm).empty();
    });
    if (!sent) {
      findings_.Add("the queued message was never sent");
      return;
    }
    life_->WaitFor([&] {
      return life_->Statuses(kAlarm).back() == 0 || life_->HasLogged(kWarning, "(retry)");
    });
  }

  // Whether somebody can know that there will be no mail: the host, as its call threw, or the
  // administrator.
  bool IsFailureKnown() const {
    if (!isAlarmTaken_) return true;
    const std::vector<int> statuses = life_->Statuses(kAlarm);
    return !statuses.empty() && statuses.back() == 1 && life_->HasLogged(kWarning, "");
  }

  // A message is never sent in part.
  void CheckWhole(const std::string& message) {
    const bool isMultipart = message.find("multipart/mixed") != std::string::npos;
    if (!EndsWith(message, isMultipart ? "--\r\n" : "The end")) {
      findings_.Add("a message was sent that is not whole");
    }
  }

  void CheckComplete(const std::vector<std::string>& messages) {
    for (const std::string& message : messages) {
      CheckWhole(message);
      if (!HasVideo()) continue;
      for (const char* name : PluginLife::kAttachments) {
        const bool isThere = message.find(name + std::string("\"\r\n")) != std::string::npos;
        if (!isThere) findings_.Add(std::string("an attachment is missing: ") + name);
      }
    }
  }

  const Road road_;
  Findings& findings_;
  std::unique_ptr<PluginLife> life_;
  bool isUpdated_ = false;
  bool isDelivered_ = false;
  bool isAlarmTaken_ = false;
};

}  // namespace

RoadOutcome TakeRoad(Road road, Kind kind, unsigned n) {
  const test::TemporaryFolder folder;
  const long descriptors = FilesIn("/proc/self/fd");
  Findings findings;
  Fault fault{kind};
  bool isDelivered = false;
  {
    Run run(road, findings);
    if (road == Road::End) {
      run.LeaveUnfinished();
      Arm(kind, n);
      run.End();
      fault.hasStruck = HasStruck();
    } else {
      Arm(kind, n);
      run.NotifyOfAlarm();
      Disarm();
      fault.hasStruck = HasStruck();
      run.NotifyOfNext();
      run.CheckMail(fault);
      isDelivered = run.IsDelivered();
      run.End();
    }
    run.CheckFiles(fault);
  }
  if (FilesIn("/proc/self/fd") != descriptors) findings.Add("a descriptor was leaked");
  return {fault.hasStruck, isDelivered, findings.Take()};
}

}  // namespace tvx::faults
