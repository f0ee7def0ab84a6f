// Writes a message, complete and ready for transfer, into its spool file.
//
// Standards: RFC 5322 header lines ending in CRLF; RFC 2046 multipart/mixed with RFC 2045 base64
//            parts when there are attachments. By default only the headers listed in the source
//            are written; the receiving server adds date and message identifier. Lines of base64
//            and notes end in a bare LF. The standard layout, which has none of these gaps, is
//            standard_layout.h.
// Threads:   the worker's.
// Not here:  expanding templates (config/templates.h), sending (transfer.h), removing the file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "config/delivery_settings.h"
#include "mail/attachment_entry.h"
#include "mail/notify_file_stream.h"
#include "mail/pending_message.h"

namespace tvx {

// What a message says and to whom, its templates already expanded.
struct MessageContent {
  std::int32_t profileId = 0;
  std::string from;
  std::vector<std::string> to;
  std::vector<std::string> cc;
  std::vector<std::string> bcc;
  std::string subject;
  std::string body;
  std::int32_t eventSeconds = 0;        // since 1970
  std::uint16_t eventMilliseconds = 0;  // as the host gave it
  DeliverySettings delivery;
};

// The relative path of the message file. part is 0 for a notification in one message, else the
// 1-based number of this message of partCount.
std::string MessagePath(const MessageContent& content, std::int32_t part, std::int32_t partCount,
                        std::uint32_t sequence);

// A subject is one header line, whatever the template or the event brought into it: a blank stands
// for each of its line breaks.
std::string OnOneLine(const std::string& text);

// The type of a movie or a picture, by the extension of its file.
const char* ContentTypeOf(const AttachmentEntry& attachment);

// Writes the message and fills from, recipients, path, size and delivery of pending. False when an address is
// no address (the file is then closed), or when the file could not be opened or written; the caller
// removes what was written. On true the file is still open: the caller closes it through the
// stream. An exception, which only memory exhaustion is, leaves it closed. sequence makes the file's name unique among the messages that exist.
bool ComposeMessage(const MessageContent& content, const std::vector<AttachmentEntry>& attachments,
                    std::int32_t part, std::int32_t partCount, std::uint32_t sequence,
                    INotifyFileStream& stream, PendingMessage& pending);

}  // namespace tvx
