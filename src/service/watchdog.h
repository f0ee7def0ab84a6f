// Tells the host that the worker is alive, on a thread that the host lends for it.
//
// Threads: Run on the watchdog's, MarkStopped on the worker's.
// Locks:   its own mutex (the service's state mutex), never held while the host is called.
#pragma once

#include <boost/chrono/duration.hpp>

#include "base/mutex.h"
#include "host/host_records.h"

namespace tvx {

class Watchdog {
 public:
  explicit Watchdog(HostServiceEntry host) : host_(host) {}

  // Sends a watchdog event every interval until the worker has stopped. A host that refuses one is
  // reported on standard error, as its log may be what fails.
  void Run(boost::chrono::milliseconds interval = boost::chrono::seconds(10)) EXCLUDES(mutex_);

  // The worker has ended: Run returns, now and later.
  void MarkStopped() EXCLUDES(mutex_);

 private:
  // Waits for the stop, at most one interval. True when the time was up first.
  bool WaitOneInterval(boost::chrono::milliseconds interval) REQUIRES(mutex_);

  const HostServiceEntry host_;
  Mutex mutex_;
  ConditionVariable changed_;
  bool stopped_ GUARDED_BY(mutex_) = false;
};

}  // namespace tvx
