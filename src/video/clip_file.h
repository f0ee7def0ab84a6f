// Writes one clip as a file: a QuickTime movie of a coded stream, a JPEG picture of a stream of
// still images.
//
// Threads: the worker's; the clip is complete.
#pragma once

#include <string>

#include "host/host_records.h"
#include "video/video_email_stream.h"

namespace tvx {

struct AttachmentFile {
  std::string path;
  std::string error;  // why the clip was refused; empty when there is nothing to say
};

// False when no file was written: the clip has no data, its standard has no movie form, or the disk
// refused. What was begun is then removed. Of still images only the first is written.
bool WriteClipFile(AttachmentFile& file, const CVideoEmailStream& clip, HostServiceEntry host);

}  // namespace tvx
