// Turns a notification's clips into files, grouped so that each message stays within its limit.
//
// Threads: the worker's; the clips are complete, so they are read without a lock.
// Errors:  a clip that cannot be written becomes an entry with a note for the reader of the mail;
//          the others are not affected. Only memory exhaustion throws.
// Not here: removing the files (service/notification_processing.h).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/host_records.h"
#include "mail/attachment_entry.h"
#include "video/attachment_source.h"

namespace tvx {

// The attachments of each outgoing message; at least one group, the first of which may be empty.
using AttachmentGroups = std::vector<std::vector<AttachmentEntry>>;

// Writes a file into the directory for each source that has a clip. sizeLimit is in bytes of clip
// data a message, 0 for no limit; a clip that is larger goes alone. onFile is told of every file
// that was written and says whether more of them are wanted; when it throws, the file is removed.
AttachmentGroups PrepareVideoAttachments(const std::vector<AttachmentSource>& sources,
                                         std::uint32_t sizeLimit, const std::string& directory,
                                         HostServiceEntry host,
                                         const std::function<bool(const std::string&)>& onFile);

}  // namespace tvx
