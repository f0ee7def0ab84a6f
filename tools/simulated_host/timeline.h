// The run of the simulated host in the order of time, printed while it happens.
//
// Threads: any. Locks: its own, taken last: it is held while a line is printed.
#pragma once

#include <chrono>
#include <memory>

#include "base/mutex.h"
#include "simulated_host/host_event.h"
#include "simulated_host/retry_tracker.h"

namespace tvx::tool {

// How the run looks. Called under the timeline's lock, so an implementation needs none. Seconds are
// the plug-in's, counted from the start of the run.
class TimelinePrinter {
 public:
  virtual ~TimelinePrinter() = default;
  virtual void Print(double seconds, const HostEvent& event) = 0;
  // Comes a few times a second, for what is not printed at once.
  virtual void Refresh(double /*seconds*/) {}
  // Comes last: what was held back is due.
  virtual void Finish(double /*seconds*/) {}
};

class Timeline {
 public:
  // Time passes at this many times the world's pace, as it does for the plug-in.
  explicit Timeline(std::unique_ptr<TimelinePrinter> printer, double speed = 1);
  ~Timeline();
  Timeline(const Timeline&) = delete;
  Timeline& operator=(const Timeline&) = delete;

  // Prints the event, and what it means for the plug-in's retry queue.
  void Record(const HostEvent& event) EXCLUDES(mutex_);
  void Refresh() EXCLUDES(mutex_);
  // Before a process ends that leaves no time for destructors.
  void Finish() EXCLUDES(mutex_);
  int Faults() const EXCLUDES(mutex_);
  // Whether a mail has been delivered, and none failed that was not sent later.
  bool IsDelivered() const EXCLUDES(mutex_);

 private:
  double Now() const REQUIRES(mutex_);

  const std::chrono::steady_clock::time_point start_;
  const double speed_;
  mutable Mutex mutex_;
  const std::unique_ptr<TimelinePrinter> printer_ GUARDED_BY(mutex_);
  RetryTracker retries_ GUARDED_BY(mutex_);
  int faults_ GUARDED_BY(mutex_) = 0;
  int delivered_ GUARDED_BY(mutex_) = 0;
  int failed_ GUARDED_BY(mutex_) = 0;  // and not sent later
};

}  // namespace tvx::tool
