// Attachments as MIME carries them.
//
// Standard: RFC 2045 base64 with the alphabet of RFC 4648, 57 bytes (76 characters) a line. Lines
//           that end in a bare LF are taken by many servers and readers; strict ones refuse mails
//           with them. A padded last line ends in nothing at all.
// Threads:  any; no state.
#pragma once

#include "mail/notify_file.h"
#include "mail/notify_file_stream.h"

namespace tvx {

// Encodes the file until its end or its first error. An empty file writes nothing. lineEnd is "\n" or
// "\r\n".
void Base64EncodeFile(INotifyFile& source, const char* lineEnd, INotifyFileStream& stream);

}  // namespace tvx
