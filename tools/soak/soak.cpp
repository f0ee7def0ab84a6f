#include "soak/soak.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <system_error>
#include <thread>

#include "base/mutex.h"
#include "simulated_host/event_loop.h"
#include "simulated_host/frame_books.h"
#include "simulated_host/host_services.h"
#include "simulated_host/mail_server.h"
#include "simulated_host/plugin_library.h"
#include "simulated_host/program_runner.h"
#include "simulated_host/progress.h"
#include "simulated_host/ticker.h"
#include "simulated_host/timeline.h"
#include "soak/cameras.h"
#include "soak/frame_tally.h"
#include "soak/load.h"

namespace tvx::soak {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kFatesFile = "fates.csv";
constexpr const char* kReceivedFile = "received.txt";

// The frames that filled the histories came all at once. A clip that has some of them is as long as
// no other.
constexpr double kSettleSeconds = 4;

// For what is still under way when the load ends.
constexpr double kDrainLimit = 180;

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

void Sleep(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

int CountFiles(const char* folder) {
  std::error_code error;
  return static_cast<int>(std::distance(fs::directory_iterator(folder, error), {}));
}

std::string MailServerCommand(const SoakOptions& options) {
  return "exec /usr/bin/python3 -B '" + options.mailSink + "' " +
         std::to_string(options.mailServerPort) + " " + kReceivedFile;
}

// Whose threads come back once the plug-in is closed.
class LentThreads {
 public:
  explicit LentThreads(tool::PluginLibrary& plugin)
      : worker_([&plugin] { plugin.RunWorker(); }),
        watchdog_([&plugin] { plugin.RunWatchdog(); }) {}
  void Join() {
    worker_.join();
    watchdog_.join();
  }

 private:
  std::thread worker_;
  std::thread watchdog_;
};

class Run {
 public:
  explicit Run(const SoakOptions& options)
      : options_(options),
        ledger_(kFatesFile),
        timeline_(MakeSoakPrinter(ledger_, findings_, "log.txt")),
        programs_(
            loop_.Context(), timeline_, progress_,
            [this](const void* chunk, std::uint32_t size) { plugin_->SendChunk(chunk, size); }),
        frames_(timeline_),
        services_(timeline_, progress_, programs_, frames_),
        plugin_(std::make_unique<tool::PluginLibrary>(options.plugin, timeline_)),
        mailServer_(loop_.Context(), timeline_, MailServerCommand(options)),
        sampleFile_("samples.csv") {}

  SoakReport Go();

 private:
  void BeginPlugin();
  void Load() EXCLUDES(samplesMutex_);
  void DirectLoad();
  void SendEvents();
  void Drain();
  void EndPlugin();
  void Configure(int number);
  void SetMailServer(bool up);
  Sample TakeSample();
  void KeepSample() EXCLUDES(samplesMutex_);
  void Judge() EXCLUDES(samplesMutex_);
  bool IsOver() const { return stopped_ || SecondsSince(begin_) >= options_.seconds; }

  const SoakOptions& options_;
  const std::vector<tool::Camera> cameras_ = MakeCameras();
  const CameraThreads::Videos videos_{ReadVideo("video.h264", tool::VideoCodec::H264),
                                      ReadVideo("video.m4v", tool::VideoCodec::Mpeg4),
                                      ReadVideo("video.mjpeg", tool::VideoCodec::Jpeg)};
  tool::Progress progress_;
  Ledger ledger_;
  HostFindingsBook findings_;
  tool::Timeline timeline_;
  tool::EventLoop loop_;  // before everything that starts threads
  tool::ProgramRunner programs_;
  tool::FrameBooks frames_;
  FrameTally tally_;
  tool::HostServices services_;
  std::unique_ptr<tool::PluginLibrary> plugin_;
  tool::MailServer mailServer_;
  std::atomic<bool> mailServerUp_{true};
  std::unique_ptr<LentThreads> lent_;

  std::atomic<bool> stopped_{false};
  Clock::time_point begin_;  // of the load
  SampleFile sampleFile_;
  Mutex samplesMutex_;
  std::vector<Sample> samples_ GUARDED_BY(samplesMutex_);
  Sample quiet_;
  SoakReport report_;
};

SoakReport Run::Go() {
  BeginPlugin();
  {
    const tool::Ticker ticks(std::chrono::milliseconds(1000), [this] { plugin_->SendTick(); });
    const CameraThreads cameras(cameras_, videos_, frames_, *plugin_, tally_);
    while (!cameras.Filled() && !stopped_) Sleep(0.05);
    Sleep(kSettleSeconds);
    Load();
    Drain();
  }
  EndPlugin();
  Judge();
  return report_;
}

void Run::BeginPlugin() {
  loop_.Start([this] { stopped_ = true; });
  SetMailServer(true);
  plugin_->Load(tally_.CountBefore(&tool::HostServices::Entry));
  plugin_->Open();
  plugin_->Seek();
  lent_ = std::make_unique<LentThreads>(*plugin_);
  plugin_->SendUpdate(SystemDocumentOf(0, cameras_));
  Configure(0);
}

void Run::Load() {
  {
    // All the memory that they will take, so that none of it looks like the plug-in's.
    constexpr std::size_t kMore = 10;
    MutexLock lock(samplesMutex_);
    samples_.resize(static_cast<std::size_t>(options_.seconds) + kMore);
    samples_.clear();
  }
  begin_ = Clock::now();
  const tool::Ticker samples(std::chrono::milliseconds(1000), [this] { KeepSample(); });
  std::thread events([this] { SendEvents(); });
  DirectLoad();
  events.join();
  report_.seconds = SecondsSince(begin_);
}

// The slow part of the load: documents and the mail server.
void Run::DirectLoad() {
  int configurations = 0;
  int systemDocuments = 0;
  while (!IsOver()) {
    const double now = SecondsSince(begin_);
    SetMailServer(MailServerIsUp(now));
    if (systemDocuments < SystemDocumentsUntil(now)) {
      plugin_->SendUpdate(SystemDocumentOf(++systemDocuments, cameras_));
    }
    if (configurations < ConfigurationsUntil(now)) Configure(++configurations);
    Sleep(0.05);
  }
}

void Run::SendEvents() {
  EventSource source(cameras_);
  for (std::int32_t number = 0; !IsOver(); ++number) {
    const bool isBehind = ledger_.Counts().unprocessed > kEnoughUnderWay;
    const Event event = source.Make(number, isBehind);
    ledger_.EventBegins(number, event.mentions, SecondsSince(begin_));
    plugin_->SendEvent(event.document);
    ledger_.EventEnds(SecondsSince(begin_));
    const double due = static_cast<double>(number + 1) / kEventsPerSecond;
    Sleep(std::max(0.0, due - SecondsSince(begin_)));
  }
}

// Until every notification has been sent or waits for its retry; then the waiting ones are called
// off by a change of the configuration.
void Run::Drain() {
  const auto begin = Clock::now();
  const auto isLate = [&] { return SecondsSince(begin) > kDrainLimit; };
  SetMailServer(true);
  while (ledger_.Counts().unprocessed > 0 && !isLate()) Sleep(0.1);
  Configure(-1);
  while (ledger_.Counts().waiting > 0 && !isLate()) Sleep(0.1);
  SetMailServer(false);
  // The last message's file goes after its line.
  Sleep(1);
  report_.drainSeconds = SecondsSince(begin);
  quiet_ = TakeSample();
}

void Run::EndPlugin() {
  plugin_->Close();
  lent_->Join();
  SetMailServer(false);
  // No report may reach the library once it is gone, so the loop ends first.
  loop_.Stop();
  programs_.KillAll();
  plugin_->Unload();
  services_.Unloaded();
  frames_.Unloaded();
  plugin_.reset();
}

void Run::Configure(int number) {
  plugin_->SendUpdate(ConfigurationOf(number, options_.mailServerPort));
}

void Run::SetMailServer(bool up) {
  if (up) {
    mailServer_.Up();
    mailServerUp_ = true;
  } else {
    mailServerUp_ = false;
    mailServer_.Down();
  }
}

Sample Run::TakeSample() {
  Sample sample;
  sample.seconds = SecondsSince(begin_);
  sample.process = ReadProcessFigures();
  sample.framesHeld = tally_.Held();
  sample.frameBytesHeld = tally_.HeldBytes();
  sample.spoolFiles = CountFiles("data");
  sample.mailServerUp = mailServerUp_;
  sample.mail = ledger_.Counts();
  return sample;
}

void Run::KeepSample() {
  const Sample sample = TakeSample();
  sampleFile_.Write(sample);
  MutexLock lock(samplesMutex_);
  samples_.push_back(sample);
}

void Run::Judge() {
  report_.mail = ledger_.Counts();
  report_.host = findings_.Get();
  {
    MutexLock lock(samplesMutex_);
    report_.flatness = JudgeFlatness(samples_, quiet_, report_.seconds);
  }
  const auto add = [this](const std::vector<std::string>& faults) {
    report_.faults.insert(report_.faults.end(), faults.begin(), faults.end());
  };
  add(report_.host.faults);
  add(ledger_.Balance());
  report_.delivery = CheckDeliveries(kFatesFile, kReceivedFile);
  add(report_.delivery.faults);
  if (report_.host.framesTaken != report_.host.framesGivenBack) {
    report_.faults.push_back(
        "frames taken and given back: " + std::to_string(report_.host.framesTaken) + " and " +
        std::to_string(report_.host.framesGivenBack));
  }
  const int left = CountFiles("data");
  if (left != 0) report_.faults.push_back("left in data/: " + std::to_string(left) + " files");
  add(report_.flatness.faults);
}

}  // namespace

SoakReport RunSoak(const SoakOptions& options) {
  return Run(options).Go();
}

}  // namespace tvx::soak
