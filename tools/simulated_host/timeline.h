// The run of the simulated host in the order of time, printed while it happens.
//
// Threads: any. Locks: its own, taken last: it is held while a line is printed.
#pragma once

#include <chrono>
#include <memory>

#include "base/mutex.h"
#include "simulated_host/happening.h"

namespace tvx::tool {

// How happenings look. Called under the timeline's lock, so an implementation needs none.
class TimelinePrinter {
 public:
  virtual ~TimelinePrinter() = default;
  // Seconds are counted from the start of the run.
  virtual void Print(double seconds, const Happening& happening) = 0;
};

class Timeline {
 public:
  // Time passes at this many times the world's pace, as it does for the plug-in.
  explicit Timeline(std::unique_ptr<TimelinePrinter> printer, double speed = 1);

  void Record(const Happening& happening) EXCLUDES(mutex_);
  int Faults() const EXCLUDES(mutex_);

 private:
  const std::chrono::steady_clock::time_point start_;
  const double speed_;
  mutable Mutex mutex_;
  const std::unique_ptr<TimelinePrinter> printer_ GUARDED_BY(mutex_);
  int faults_ GUARDED_BY(mutex_) = 0;
};

}  // namespace tvx::tool
