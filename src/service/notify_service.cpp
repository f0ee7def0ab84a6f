#include "service/notify_service.h"

#include <malloc.h>

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/input_limits.h"
#include "config/config_file.h"
#include "config/module_documents.h"
#include "config/notify_writer.h"
#include "config/xml_document.h"
#include "host/host_entry.h"
#include "log/host_log.h"
#include "log/logger.h"
#include "mail/spool.h"
#include "service/config_change.h"
#include "service/event_document.h"
#include "service/event_intake.h"
#include "service/waiting_limits.h"

namespace tvx {
namespace {

// Tells of a document that was refused before it was read. One that is no XML is ignored silently.
void LogRefusal(HostServiceEntry host, const char* what, ParseOutcome outcome) {
  const char* reason = RefusalReason(outcome);
  if (reason == nullptr) return;
  HostLog(kModuleId, host, LogLevel::Warning, "Ignored %s of the host: %s", what, reason);
}

// Gives back what a large document's tree took, once the tree is gone: the library's heap would keep
// it for itself, and most of a 32-bit process is the host's. Frames have no part in it.
class MemoryOfDocument {
 public:
  explicit MemoryOfDocument(std::size_t length) : length_(length) {}
  ~MemoryOfDocument() {
    if (length_ >= kLargeDocumentBytes) ::malloc_trim(0);
  }
  MemoryOfDocument(const MemoryOfDocument&) = delete;
  MemoryOfDocument& operator=(const MemoryOfDocument&) = delete;

 private:
  const std::size_t length_;
};

}  // namespace

NotifyService::NotifyService(HostServiceEntry host, ProcessChannel& channel)
    : host_(host),
      channel_(channel),
      watchdog_(host),
      publisher_(host, [this] { return Config(); }),
      state_(host) {
  GetLogger()->SetFileName("notifylog.txt");
}

NotifyService::~NotifyService() {
  ForgetDataDirectory();
}

void NotifyService::Open(boost::chrono::milliseconds curlLimit) {
  const bool smtps = CurlSupportsSmtps(curlLimit);
  SendHostDocument(host_, HostCommand::ConfigDocument, RegistrationDocument());
  if (LoadConfiguration(smtps) == LoadOutcome::Loaded) {
    HostLog(kModuleId, host_, LogLevel::Information, "Loaded configuration from disk successfully");
  } else {
    HostLog(kModuleId, host_, LogLevel::Warning,
            "Either no configuration or an improper configuration was found, continuing with empty "
            "configuration.");
  }
  publisher_.Publish();
}

bool NotifyService::CurlSupportsSmtps(boost::chrono::milliseconds limit) {
  const auto program = channel_.RunProgram({"./curl", "-V"});
  const auto deadline = boost::chrono::steady_clock::now() + limit;
  bool supported = false;
  for (std::string line; boost::chrono::steady_clock::now() < deadline &&
                         ReadLine(*program, OutputStream::Output, line, deadline);) {
    supported = supported || line.find("smtps") != std::string::npos;
  }
  if (!program->IsRunning()) return supported;
  HostLog(
      kModuleId, host_, LogLevel::Warning,
      "./curl -V does not end. It is not waited for any longer, and taken as one without smtps");
  return false;
}

LoadOutcome NotifyService::LoadConfiguration(bool curlSupportsSmtps) {
  const ConfigDocument file = ReadConfigFile(kConfigFile);
  LoadOutcome outcome{};
  {
    MutexLock lock(intakeMutex_);
    NotifyConfig config = *state_.config;
    config.curlSupportsSmtps = curlSupportsSmtps;
    outcome = TakeConfigDocument(file, config);
    ReplaceConfig(std::move(config), state_);
  }
  if (outcome == LoadOutcome::Failed) {
    HostLog(kModuleId, host_, LogLevel::Error,
            "notify.xml could not be read and stays as it is: %s", file.fault.text.c_str());
    publisher_.SetFile(ConfigPublisher::File::Unread);
    return outcome;
  }
  publisher_.SetFile(ConfigPublisher::File::Replaceable);
  // It would be overwritten by the save that follows.
  if (outcome == LoadOutcome::Rejected && !KeepRejectedFile(kConfigFile)) {
    HostLog(
        kModuleId, host_, LogLevel::Warning,
        "The rejected notify.xml could not be renamed to notify.xml.rejected and stays as it is "
        "until the next change of the configuration");
    publisher_.SetFile(ConfigPublisher::File::KeptOnce);
  }
  return outcome;
}

std::shared_ptr<const NotifyConfig> NotifyService::Config() {
  MutexLock lock(intakeMutex_);
  return state_.config;
}

void NotifyService::Stop() noexcept {
  queue_.EnqueueStop();
}

void NotifyService::RunWorker() {
  // However the loop ends, the watchdog must not go on saying that it runs.
  struct StopWatchdog {
    ~StopWatchdog() { watchdog.MarkStopped(); }
    Watchdog& watchdog;
  } stopWatchdog{watchdog_};
  RunWorkerLoop(queue_, *this, channel_, host_,
                [this](const NotifyWorkItem* item) { return BeginWorkerTurn(item); });
}

WorkerConfig NotifyService::BeginWorkerTurn(const NotifyWorkItem* item) {
  MutexLock lock(intakeMutex_);
  if (item != nullptr) {
    for (const AttachmentSource& video : item->videos) {
      if (video.clip != nullptr) state_.buffers.HandOver(*video.clip);
    }
  }
  return {state_.config, std::exchange(state_.configurationChanged, false)};
}

template <typename Operation>
void NotifyService::UnderIntakeMutex(Operation operation) {
  IntakeOutcome outcome;
  try {
    MutexLock lock(intakeMutex_);
    operation(state_, outcome);
  } catch (...) {
    Conclude(outcome);  // what was accepted before the failure is not lost with it
    throw;
  }
  Conclude(outcome);
}

void NotifyService::ReceiveEventDocument(const char* text, std::size_t length) {
  const MemoryOfDocument memory(length);
  const ParsedDocument parsed = ParseDocument(text, length);
  LogRefusal(host_, "an event document", parsed.outcome);
  const TiXmlElement* root = parsed.Root();
  if (root == nullptr) return;
  const EventDocument document = ReadEventDocument(*root);
  UnderIntakeMutex([&](ServiceState& state, IntakeOutcome& outcome) {
    ReceiveEvents(document, state, outcome);
    LimitWaitingNotifications(queue_, state, outcome);
  });
}

bool NotifyService::ReceiveFrame(const IncomingFrame& frame) {
  bool taken = false;
  try {
    UnderIntakeMutex([&](ServiceState& state, IntakeOutcome& outcome) {
      taken = state.buffers.TakeFrame(frame, outcome.dropped);
      if (!taken) return;
      LimitWaitingVideo(state, outcome);
      DispatchReady(state, outcome);
    });
  } catch (const std::bad_alloc&) {
    // A frame that was taken is ours, and the host has to be told. What is ready goes to the worker
    // with the next frame or tick.
    if (!taken) throw;
  }
  return taken;
}

void NotifyService::Tick() {
  const std::int64_t now = WallSeconds();
  UnderIntakeMutex([&](ServiceState& state, IntakeOutcome& outcome) {
    state.throttle.Advance(TickNow());
    state.parked.ReleaseDue(now);
    DispatchReady(state, outcome);
  });
}

void NotifyService::Conclude(IntakeOutcome& outcome) {
  outcome.log.Write(host_);
  queue_.Enqueue(std::move(outcome.dispatched));
  for (const WorkQueue::Item& item : outcome.ended) {
    ReportStatus(item->profile->ID, ProfileStatus::Failed);
  }
}

void NotifyService::ApplyUpdate(const char* text, std::size_t length) {
  const MemoryOfDocument memory(length);
  const ParsedDocument parsed = ParseDocument(text, length);
  LogRefusal(host_, "a configuration document", parsed.outcome);
  const TiXmlElement* root = parsed.Root();
  if (root == nullptr) return;
  const auto delta = IntAttribute(*root, "Delta");
  if (!delta) return;
  if (*delta != 0) {
    ChangeNotification(*root);
  } else {
    TakeSystemDocument(*root);
  }
}

void NotifyService::ChangeNotification(const TiXmlElement& root) {
  bool isAccepted = false;
  ConfigPublisher::Changes changes;
  // Read and compared without the mutex, which frames wait for; anew when another change came first.
  for (bool isTaken = false; !isTaken;) {
    NotifyChange change = ReadNotifyChange(root, Config());
    isAccepted = change.isAccepted;
    const char* refusal =
        isAccepted ? WhyNotReadAgain(PrintDocument(*BuildNotifyDocument(change.config))) : nullptr;
    if (refusal != nullptr) {
      HostLog(kModuleId, host_, LogLevel::Warning,
              "Refused a change of the configuration, as notify.xml would be refused at the next "
              "start: %s",
              refusal);
      return;
    }
    changes.clear();
    if (isAccepted) changes.push_back(std::move(change.affected));
    MutexLock lock(intakeMutex_);
    isTaken = TakeNotifyChange(std::move(change), state_);
  }
  if (!isAccepted) return;
  HostLog(kModuleId, host_, LogLevel::Information, "Updated configuration successfully");
  publisher_.Publish(std::move(changes));
}

void NotifyService::TakeSystemDocument(const TiXmlElement& root) {
  SystemDocument document = ReadSystemDocument(root);
  bool isSaveDue = false;
  UnderIntakeMutex([&](ServiceState& state, IntakeOutcome& outcome) {
    isSaveDue = ApplySystemDocument(std::move(document), state, outcome);
  });
  if (isSaveDue) publisher_.Publish();
}

void NotifyService::ReportStatus(std::int32_t profileId, ProfileStatus status) {
  SendHostDocument(host_, HostCommand::StatusDocument,
                   StatusDocument({profileId}, status, WallSeconds()));
}

}  // namespace tvx
