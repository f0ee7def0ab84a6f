// How far the plug-in has come with what it was given: what a scenario waits for.
//
// Threads: any. Locks: its own; nothing is called with it.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "base/mutex.h"

namespace tvx::tool {

class Progress {
 public:
  // An event document goes out, with these profiles; told before it is sent.
  void EventSent(const std::vector<std::int32_t>& profiles) EXCLUDES(mutex_);
  void StatusReported(std::int32_t profile, std::int32_t status) EXCLUDES(mutex_);
  void ProgramRequested() EXCLUDES(mutex_);
  void ProgramGone() EXCLUDES(mutex_);
  // The most seconds that a notification may wait for its video.
  void ClipsLast(int seconds) EXCLUDES(mutex_);
  int LongestClip() EXCLUDES(mutex_);
  // A camera is started, and its first frame has come (or none will).
  void CameraStarts() EXCLUDES(mutex_);
  void CameraFeeds() EXCLUDES(mutex_);
  // Any other sign of life.
  void Happened() EXCLUDES(mutex_);

  // Ends every wait, also those to come.
  void Interrupt() EXCLUDES(mutex_);

  // The waits return false when they were interrupted.
  bool Pause(double seconds) EXCLUDES(mutex_);
  bool WaitUntilInterrupted() EXCLUDES(mutex_);
  // Until every camera that was started feeds.
  bool WaitForCameras() EXCLUDES(mutex_);
  // Until this many notifications have been reported delivered since the start.
  bool WaitDelivered(int count) EXCLUDES(mutex_);
  // Until no program runs and each profile of each event has been reported on. Not every event is
  // due a notification, so silence of settleSeconds counts as well.
  bool WaitIdle(double settleSeconds) EXCLUDES(mutex_);

 private:
  using Time = ConditionVariable::SteadyTime;

  void Touch() REQUIRES(mutex_);

  Mutex mutex_;
  ConditionVariable changed_;
  // Profiles of events sent, and how many of their notifications have not been reported on. Counted,
  // as most of a long run's are throttled.
  std::map<std::int32_t, int> awaited_ GUARDED_BY(mutex_);
  int delivered_ GUARDED_BY(mutex_) = 0;
  int programs_ GUARDED_BY(mutex_) = 0;
  int longestClip_ GUARDED_BY(mutex_) = 0;
  int startingCameras_ GUARDED_BY(mutex_) = 0;
  Time lastSign_ GUARDED_BY(mutex_);
  bool interrupted_ GUARDED_BY(mutex_) = false;
};

}  // namespace tvx::tool
