// Feeds one camera's frames to the plug-in, at the pace at which the camera takes them.
//
// Owns:    a thread, and the program that the pictures come from, until destruction.
// Threads: construct and destroy on one; frames are written on the own thread.
// Errors:  a program that cannot be started is a std::system_error; one that fails, or whose output
//          is no video, is a fault in the timeline.
#pragma once

#include <boost/chrono/system_clocks.hpp>
#include <thread>

#include "base/mutex.h"
#include "simulated_host/access_units.h"
#include "simulated_host/camera.h"
#include "simulated_host/frame_books.h"
#include "simulated_host/plugin_library.h"
#include "simulated_host/program_output.h"
#include "simulated_host/progress.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

class FrameFeed {
 public:
  // A pace of 2 is twice as fast as real time. All references must outlive this object.
  FrameFeed(const Camera& camera, double pace, FrameBooks& books, PluginLibrary& plugin,
            Timeline& timeline, Progress& progress);
  // Ends the feed; a Write under way is waited for.
  ~FrameFeed();
  FrameFeed(const FrameFeed&) = delete;
  FrameFeed& operator=(const FrameFeed&) = delete;

 private:
  using Clock = boost::chrono::steady_clock;

  void Run();
  void FeedAll();
  bool AwaitNext() EXCLUDES(mutex_);
  void Write(const AccessUnit& unit);

  const Camera camera_;
  const double pace_;
  FrameBooks& books_;
  PluginLibrary& plugin_;
  Timeline& timeline_;
  Progress& progress_;
  ProgramOutput video_;
  // The own thread's.
  int frames_ = 0;
  Clock::time_point begin_;  // of the first frame
  Clock::duration late_{};   // the most that a frame was fed after its time
  Mutex mutex_;
  ConditionVariable changed_;
  bool stopped_ GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace tvx::tool
