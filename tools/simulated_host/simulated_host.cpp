#include "simulated_host/simulated_host.h"

#include <algorithm>
#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <thread>
#include <variant>
#include <vector>

#include "simulated_host/event_loop.h"
#include "simulated_host/frame_books.h"
#include "simulated_host/frame_feed.h"
#include "simulated_host/host_services.h"
#include "simulated_host/mail_server.h"
#include "simulated_host/plugin_document.h"
#include "simulated_host/plugin_library.h"
#include "simulated_host/program_runner.h"
#include "simulated_host/progress.h"
#include "simulated_host/ticker.h"

namespace tvx::tool {
namespace {

constexpr double kTickInterval = 1000;   // milliseconds of the plug-in's time
constexpr double kShortestInterval = 5;  // of the world's

constexpr std::chrono::milliseconds kRefreshInterval{200};

// A stopping plug-in may still be in an exchange with a web server, which ends after ten seconds.
constexpr std::chrono::seconds kStopLimit{30};

// Some senders signal a process and its group, so that one signal arrives twice.
constexpr std::chrono::seconds kOneSignal{1};

constexpr int kFaultFound = 1;

// The threads and objects of one run.
class Host {
 public:
  Host(const HostOptions& options, Timeline& timeline)
      : options_(options),
        timeline_(timeline),
        programs_(
            loop_.Context(), timeline_, progress_,
            [this](const void* chunk, std::uint32_t size) { plugin_.SendChunk(chunk, size); }),
        frames_(timeline_),
        services_(timeline_, progress_, programs_, frames_),
        plugin_(options.plugin, timeline_),
        mailServer_(loop_.Context(), timeline_, options.mailServer, options.mailServerFolder),
        limit_(loop_.Context()) {}

  // False when it was stopped early.
  bool Run();

 private:
  void Say(std::string text) { timeline_.Record(HostAction{std::move(text)}); }
  void OnStop();
  void LimitTime();
  void LimitStop();
  [[noreturn]] void GiveUp(const std::string& why);
  std::string StillRunning() const;
  void LendThreads();
  void RunSteps();
  bool Do(const SendDocument& step);
  bool Do(const SendTick& step);
  bool Do(const Pause& step) { return progress_.Pause(step.seconds / options_.speed); }
  bool Do(const AwaitIdle&) { return progress_.WaitIdle(Settle()); }
  bool Do(const AwaitDelivered& step) { return progress_.WaitDelivered(step.count); }
  bool Do(const SetMailServer& step);
  bool Do(const StartCamera& step);
  void SendEvent(const std::string& text);
  double Settle();
  void Stop();

  const HostOptions& options_;
  Timeline& timeline_;
  Progress progress_;
  EventLoop loop_;  // before everything that starts threads
  const Ticker refresh_{kRefreshInterval, [this] { timeline_.Refresh(); }};
  ProgramRunner programs_;
  FrameBooks frames_;
  HostServices services_;
  PluginLibrary plugin_;
  std::vector<std::unique_ptr<FrameFeed>> feeds_;
  MailServer mailServer_;
  boost::asio::steady_timer limit_;  // on the loop's thread, once that runs
  // Set on the loop's thread, read when that has ended: a signal has come, or the time is up.
  bool stopping_ = false;
  std::chrono::steady_clock::time_point stoppingSince_;
  std::atomic<bool> closed_{false};
  std::thread worker_;
  std::thread watchdog_;
};

bool Host::Run() {
  loop_.Start([this] { OnStop(); });
  if (options_.timeLimit > 0) boost::asio::post(loop_.Context(), [this] { LimitTime(); });

  if (options_.speed != 1) plugin_.SetClockSpeed(options_.speed);
  const bool mailServerIsUp = mailServer_.Up();
  Say("load " + options_.plugin);
  plugin_.Load(&HostServices::Entry);
  Say("open");
  plugin_.Open();
  plugin_.Seek();
  LendThreads();
  {
    const double interval = std::max(kTickInterval / options_.speed, kShortestInterval);
    const Ticker ticks(std::chrono::milliseconds(static_cast<long>(interval)),
                       [this] { plugin_.SendTick(); });
    if (mailServerIsUp) RunSteps();
  }
  Stop();
  return !stopping_;
}

void Host::LendThreads() {
  worker_ = std::thread([this] {
    plugin_.RunWorker();
    if (!closed_) timeline_.Record(Fault{"the worker's thread came back before Close"});
  });
  watchdog_ = std::thread([this] {
    plugin_.RunWatchdog();
    if (!closed_) timeline_.Record(Fault{"the watchdog's thread came back before Close"});
  });
}

void Host::RunSteps() {
  if (!options_.steps) {
    Say("running until Ctrl-C");
    progress_.WaitUntilInterrupted();
    return;
  }
  for (const Step& step : *options_.steps) {
    // Cameras that begin together start together, and what follows counts from their first frames.
    if (!std::holds_alternative<StartCamera>(step) && !progress_.WaitForCameras()) return;
    if (!std::visit([this](const auto& it) { return Do(it); }, step)) return;
  }
  progress_.WaitIdle(Settle());
}

// Seconds of silence that count as idle. While cameras feed, a notification may wait in silence for
// its video, and for the tick behind its deadline.
double Host::Settle() {
  constexpr double kDeadline = 2;
  constexpr double kTick = 1;
  if (feeds_.empty()) return options_.settle;
  return options_.settle + (progress_.LongestClip() + kDeadline + kTick) / options_.speed;
}

bool Host::Do(const SendDocument& step) {
  switch (step.kind) {
    case DocumentKind::System:
      Say("system document " + step.name);
      plugin_.SendUpdate(step.text);
      break;
    case DocumentKind::Update:
      Say("configuration document " + step.name);
      plugin_.SendUpdate(step.text);
      break;
    case DocumentKind::Event:
      Say("event document " + step.name);
      SendEvent(step.text);
      break;
  }
  return true;
}

void Host::SendEvent(const std::string& text) {
  const std::vector<std::int32_t> profiles = ProfilesOfEvent(text);
  timeline_.Record(NotificationsAsked{profiles});
  progress_.EventSent(profiles);
  plugin_.SendEvent(text);
}

bool Host::Do(const SendTick&) {
  plugin_.SendTick();
  return true;
}

bool Host::Do(const SetMailServer& step) {
  if (step.up) return mailServer_.Up();
  mailServer_.Down();
  return true;
}

bool Host::Do(const StartCamera& step) {
  try {
    feeds_.push_back(std::make_unique<FrameFeed>(step.camera, options_.pace * options_.speed,
                                                 frames_, plugin_, timeline_, progress_));
  } catch (const std::system_error& error) {
    timeline_.Record(Fault{std::string("a camera cannot be fed: ") + error.what()});
  }
  return true;
}

void Host::Stop() {
  feeds_.clear();
  boost::asio::post(loop_.Context(), [this] { LimitStop(); });
  Say("close");
  closed_ = true;
  plugin_.Close();
  worker_.join();
  watchdog_.join();
  mailServer_.Down();
  // No report may reach the library once it is gone, so the loop ends first.
  loop_.Stop();
  for (const std::string& name : programs_.Names()) Say("killing " + name);
  programs_.KillAll();
  plugin_.Unload();
  services_.Unloaded();
  frames_.Unloaded();
  Say("unloaded");
}

void Host::OnStop() {
  const auto now = std::chrono::steady_clock::now();
  if (stopping_ && now - stoppingSince_ < kOneSignal) return;
  if (stopping_) GiveUp("stopped at once by a second signal");
  stopping_ = true;
  stoppingSince_ = now;
  Say("stopping");
  progress_.Interrupt();
  LimitStop();
}

std::string Host::StillRunning() const {
  std::string text;
  for (const std::string& name : programs_.Names()) {
    text += (text.empty() ? "; still running: " : ", ") + name;
  }
  return text;
}

void Host::LimitTime() {
  limit_.expires_after(std::chrono::milliseconds(static_cast<long>(options_.timeLimit * 1000)));
  limit_.async_wait([this](const boost::system::error_code& error) {
    if (error || stopping_) return;
    stopping_ = true;
    stoppingSince_ = std::chrono::steady_clock::now();
    char text[64];
    std::snprintf(text, sizeof(text), "not done after %g s", options_.timeLimit);
    timeline_.Record(Fault{text + StillRunning()});
    progress_.Interrupt();
    LimitStop();
  });
}

// From here on the plug-in has its last time to come to an end. Cancels the limit before.
void Host::LimitStop() {
  limit_.expires_after(kStopLimit);
  limit_.async_wait([this](const boost::system::error_code& error) {
    if (error) return;
    GiveUp("the plug-in did not come to an end within " + std::to_string(kStopLimit.count()) +
           " s" + StillRunning());
  });
}

// Threads are inside the plug-in and cannot be called back: only the process can end.
void Host::GiveUp(const std::string& why) {
  timeline_.Record(Fault{why});
  programs_.KillAll();
  mailServer_.Kill();
  timeline_.Finish();
  std::fflush(nullptr);
  if (options_.onAbandon) options_.onAbandon();
  std::_Exit(kFaultFound);
}

}  // namespace

bool RunHost(const HostOptions& options, Timeline& timeline) {
  return Host(options, timeline).Run();
}

}  // namespace tvx::tool
