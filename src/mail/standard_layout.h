// A message as today's servers, filters and readers expect it.
//
// Standards: RFC 5322, RFC 2045 to 2047, RFC 2231, RFC 3834 (a machine wrote it). Lines end in CRLF
//            and have at most 998 bytes; all of it is ASCII, as nobody knows beforehand what the
//            server takes.
// Threads:   the worker's.
// Not here:  the envelope and the file (composition.h); how texts are encoded (mime_text.h).
#pragma once

#include <cstdint>
#include <vector>

#include "mail/attachment_entry.h"
#include "mail/composition.h"
#include "mail/notify_file_stream.h"

namespace tvx {

// Writes the message, whose envelope and path pending already has; part and partCount as
// ComposeMessage has them. What fails shows in the stream.
void WriteStandardMessage(const MessageContent& content,
                          const std::vector<AttachmentEntry>& attachments, std::int32_t part,
                          std::int32_t partCount, const PendingMessage& pending,
                          INotifyFileStream& stream);

}  // namespace tvx
