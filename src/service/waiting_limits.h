// Bounds what waits for clips or for the worker. While no mail can be sent, all else goes on: frames
// go back to the host, and memory stays for the host's own work.
//
// Threads: the host's Write paths. Locks: every call is made under the intake mutex, and may take
//          the work queue's for a moment.
// Not here: the limits themselves (base/input_limits.h), messages that wait for a retry
//           (mail/retry_queue.h).
#pragma once

#include "service/service_state.h"
#include "service/work_queue.h"

namespace tvx {

// Lets the oldest waiting clips go while they hold more than kMaxWaitingVideoBytes; their mails tell
// the reader. The log tells once, until half of it is free again. Asked after each frame.
void LimitWaitingVideo(ServiceState& state, IntakeOutcome& outcome);

// Ends the oldest notifications beyond kMaxWaitingNotifications: first those in the queue, then
// those that would be behind them. The log tells once, until half as many wait.
void LimitWaitingNotifications(WorkQueue& queue, ServiceState& state, IntakeOutcome& outcome);

}  // namespace tvx
