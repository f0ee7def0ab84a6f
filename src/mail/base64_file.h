// Attachments as MIME carries them.
//
// Standard: RFC 2045 base64 with the alphabet of RFC 4648, 57 bytes (76 characters) a line. Lines
//           end in a bare LF, which servers and readers in common use take; some strict servers
//           refuse mails with bare line feeds. A padded last line ends in nothing at all.
// Threads:  any; no state.
#pragma once

#include "mail/notify_file.h"
#include "mail/notify_file_stream.h"

namespace tvx {

// Encodes the file until its end or its first error. An empty file writes nothing.
void Base64EncodeFile(INotifyFile& source, INotifyFileStream& stream);

}  // namespace tvx
