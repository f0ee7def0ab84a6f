// The worker loop: takes notifications from the queue and, while there are none, retries messages
// that failed.
//
// Threads: the one that the host lends for it.
// Errors:  an exception while one notification is processed is logged and reported as its failure,
//          and the loop goes on. A failure of the locking library ends the loop by exception.
#pragma once

#include <functional>
#include <memory>

#include "config/notify_config.h"
#include "host/host_records.h"
#include "host/process_channel.h"
#include "mail/notify_helper.h"
#include "service/work_queue.h"

namespace tvx {

// The configuration as the worker is to use it from now on.
struct WorkerConfig {
  std::shared_ptr<const NotifyConfig> snapshot;
  bool changed = false;  // since it was last taken
};

// Runs until the stop item is taken. beginTurn is asked once a turn, with the item of the turn,
// which may be null; from then on the item is the worker's alone.
void RunWorkerLoop(WorkQueue& queue, IStatusReceiver& owner, ProcessChannel& channel,
                   HostServiceEntry host,
                   const std::function<WorkerConfig(const NotifyWorkItem*)>& beginTurn);

}  // namespace tvx
