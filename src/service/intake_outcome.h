// What an operation under the intake mutex leaves to be done once the mutex is free: log lines to
// write, notifications to queue, frames to give back to the host.
// Threads: one at a time; a local of the operation.
#pragma once

#include "log/deferred_log.h"
#include "service/work_queue.h"
#include "video/frame_bin.h"

namespace tvx {

struct IntakeOutcome {
  DeferredLog log;
  WorkQueue::Items dispatched;  // for the worker, in this order
  WorkQueue::Items ended;       // have failed, as too many waited
  FrameBin dropped;
};

}  // namespace tvx
