// One video source of a notification, as attachment preparation gets it.
// Threads: as the notification that holds it.
#pragma once

#include <memory>
#include <string>

#include "video/video_email_stream.h"

namespace tvx {

struct AttachmentSource {
  std::string name;                         // the source's display name; may be empty
  std::shared_ptr<CVideoEmailStream> clip;  // null when no frame of the source ever arrived
};

}  // namespace tvx
