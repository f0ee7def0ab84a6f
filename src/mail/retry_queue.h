// The retry queue: what happens to messages that could not be sent.
//
// A round starts when nextRetry is reached. In it each message is tried once, oldest first, one a
// pass. A complete round doubles the interval; a message that is sent, given up or newly queued
// sets it back to a minute. The queue is bounded in length, and gives way when the disk fills.
//
// Threads: the worker's only. Files are removed through the stream; a removal that fails is not
//          reported.
#pragma once

#include <cstdint>
#include <list>

#include "mail/notify_file_stream.h"
#include "mail/notify_helper.h"
#include "mail/pending_message.h"

namespace tvx {

// Queues the one message of the list, whose send failed for now, without an allocation that could
// fail: what may be sent later is not lost. Pushes out the oldest one when maxQueue are queued,
// and large ones when the volume of the spool is nearly full; when that does not help, the new
// message itself is discarded with its file.
void EnqueueForRetry(NotifyHelper& helper, std::list<PendingMessage> newMessage,
                     std::int32_t maxQueue, INotifyFileStream& stream);

// Tries at most one message; true when it tried one. One that keeps failing is discarded at the
// first attempt made at least maxRetrySeconds after it was queued.
bool RetryPass(NotifyHelper& helper, INotifyFileStream& stream, std::int32_t maxRetrySeconds);

// Discards all queued messages with their files.
void ClearRetryQueue(NotifyHelper& helper, INotifyFileStream& stream);

}  // namespace tvx
