// Where frames that are no longer wanted wait until the intake mutex has been released.
//
// Letting the last reference to a frame go calls the host, which may hold a lock of its own there
// and call back on another thread. So whatever drops frames under the mutex moves them into a bin
// of the caller's, which outlives the lock:
//
//   FrameBin bin;                    // declared first, destroyed last
//   MutexLock lock(intakeMutex);
//   buffers.TakeFrame(frame, bin);
//
// Moving into a bin is splicing lists: it allocates nothing and cannot fail.
#pragma once

#include <list>
#include <memory>

#include "video/video_frame.h"

namespace tvx {

class CVideoEmailStream;

struct FrameBin {
  std::list<FrameGroup> groups;
  std::list<std::shared_ptr<CVideoEmailStream>> clips;
};

}  // namespace tvx
