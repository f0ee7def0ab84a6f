// Everything that the intake mutex guards, and what an operation under it leaves to be done without.
//
// Threads: of the state, whoever holds the intake mutex; an outcome is a local of its operation.
#pragma once

#include <memory>

#include "config/event_action_table.h"
#include "config/notify_config.h"
#include "config/system_directory.h"
#include "log/deferred_log.h"
#include "service/parked_notifications.h"
#include "service/throttle.h"
#include "service/work_queue.h"
#include "video/frame_bin.h"
#include "video/video_buffer_set.h"

namespace tvx {

struct ServiceState {
  explicit ServiceState(HostServiceEntry host) : buffers(host) {}

  // Replaced at every change, never changed itself: the worker and the notifications share it.
  std::shared_ptr<const NotifyConfig> config = std::make_shared<const NotifyConfig>();
  // Set by updates of the notification configuration, cleared by the worker: queued retries were
  // addressed by settings that no longer hold.
  bool configurationChanged = false;

  EventActionTable eventActions;
  VideoBufferSet buffers;

  ParkedNotifications parked;
  // The log has told of the outage in which waiting video, or waiting notifications, go.
  bool toldOfVideo = false;
  bool toldOfNotifications = false;
  Throttle throttle;

  // What the host's last full system document says of its devices.
  const SystemDirectory& Directory() const { return buffers.Directory(); }

  // Replaced when a document says something new, never changed itself: notifications share it.
  std::shared_ptr<const SystemFacts> system = std::make_shared<const SystemFacts>();
};

// Done once the mutex is free: log lines to write, notifications to queue, frames to give back to the
// host.
struct IntakeOutcome {
  DeferredLog log;
  WorkQueue::Items dispatched;  // for the worker, in this order
  WorkQueue::Items ended;       // have failed, as too many waited
  FrameBin dropped;
};

}  // namespace tvx
