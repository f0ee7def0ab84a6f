// The way of one notification through the worker: attachments, texts, messages, transfer.
//
// Threads: the worker's. Locks: none; the item and the snapshot are the worker's own.
// Errors:  each failure has its log line. An exception leaves no file behind and goes to the caller,
//          which logs it.
#pragma once

#include "config/notify_config.h"
#include "mail/notify_file_stream.h"
#include "mail/notify_helper.h"
#include "service/work_item.h"

namespace tvx {

// Sends one notification, as one message for each group of attachments; what became of it is the
// caller's to report. A message that could not be sent for now goes to the retry queue.
ProfileStatus ProcessNotification(NotifyWorkItem& item, const NotifyConfig& snapshot,
                                  NotifyHelper& helper, INotifyFileStream& stream);

}  // namespace tvx
