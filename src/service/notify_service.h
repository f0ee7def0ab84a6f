// The notification service: the one long-lived object of the plug-in, between Load and Unload.
//
// It has no threads of its own. The host lends one for the worker and one for the watchdog; all
// else runs on the threads that call in.
//
// Owns:    configuration, frame history, parked and queued notifications. Destroying it drops them
//          unsent and gives every frame back; the host has seen both loops return before.
// Locks:   the intake mutex covers the state and is held for moments only, never while the host is
//          called; docs/architecture.md has the others.
// Errors:  none are reported; they are logged. Only memory exhaustion leaves by exception.
#pragma once

#include <boost/chrono/duration.hpp>
#include <cstdint>
#include <memory>

#include "base/mutex.h"
#include "config/config_file.h"
#include "host/host_records.h"
#include "host/process_channel.h"
#include "mail/notify_helper.h"
#include "service/config_publisher.h"
#include "service/service_state.h"
#include "service/watchdog.h"
#include "service/work_queue.h"
#include "service/worker.h"
#include "video/video_buffer_set.h"

class TiXmlElement;

namespace tvx {

class NotifyService : public IStatusReceiver {
 public:
  // The channel outlives the service.
  NotifyService(HostServiceEntry host, ProcessChannel& channel);
  ~NotifyService() override;

  // Finds out what the transfer program can do, announces the module, loads the configuration from
  // its file and publishes it. Waits for the program, whose reports come on other threads
  // meanwhile, and once it runs no longer than this for its answer.
  void Open(boost::chrono::milliseconds curlLimit = boost::chrono::seconds(10))
      EXCLUDES(intakeMutex_);

  // Ends the worker at its next turn, before anything that is still queued.
  void Stop() noexcept;

  // The worker loop. Returns after Stop.
  void RunWorker();

  // The watchdog loop. Returns when the worker has ended.
  void RunWatchdog() { watchdog_.Run(); }

  // The host's Write paths. Any thread; one at a time gets the intake mutex.
  void ReceiveEventDocument(const char* text, std::size_t length) EXCLUDES(intakeMutex_);
  bool ReceiveFrame(const IncomingFrame& frame) EXCLUDES(intakeMutex_);
  void Tick() EXCLUDES(intakeMutex_);

  // A document of the host that changes the configuration: a delta, or the full system document.
  void ApplyUpdate(const char* text, std::size_t length) EXCLUDES(intakeMutex_);

  // Reports what became of a profile's notification.
  void ReportStatus(std::int32_t profileId, ProfileStatus status) override;

 private:
  bool CurlSupportsSmtps(boost::chrono::milliseconds limit);
  LoadOutcome LoadConfiguration(bool curlSupportsSmtps) EXCLUDES(intakeMutex_);
  void ChangeNotification(const TiXmlElement& root) EXCLUDES(intakeMutex_);
  void TakeSystemDocument(const TiXmlElement& root) EXCLUDES(intakeMutex_);
  std::shared_ptr<const NotifyConfig> Config() EXCLUDES(intakeMutex_);
  WorkerConfig BeginWorkerTurn(const NotifyWorkItem* item) EXCLUDES(intakeMutex_);
  // Runs operation(state, outcome) under the intake mutex, and concludes its outcome without it.
  template <typename Operation>
  void UnderIntakeMutex(Operation operation) EXCLUDES(intakeMutex_);
  void Conclude(IntakeOutcome& outcome) EXCLUDES(intakeMutex_);

  // Constant after construction.
  const HostServiceEntry host_;
  ProcessChannel& channel_;

  // With locks of their own.
  WorkQueue queue_;
  Watchdog watchdog_;
  ConfigPublisher publisher_;

  Mutex intakeMutex_;
  ServiceState state_ GUARDED_BY(intakeMutex_);
};

}  // namespace tvx
