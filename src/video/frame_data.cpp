#include "video/frame_data.h"

#include "host/host_entry.h"

namespace tvx {

FrameData::~FrameData() {
  ReleaseHostFrame(host_, handle_);
}

}  // namespace tvx
