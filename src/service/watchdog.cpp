#include "service/watchdog.h"

#include <cstdio>

#include "host/host_entry.h"

namespace tvx {
namespace {

void SendEvent(HostServiceEntry host) {
  const WatchdogOutcome outcome = SendWatchdogEvent(host);
  if (outcome.returned == 0 && outcome.status == 0) return;
  std::fprintf(stderr, "NotifyPI: watch dog event ret %d error %d", outcome.returned,
               static_cast<int>(outcome.status));
}

}  // namespace

void Watchdog::Run(boost::chrono::milliseconds interval) {
  for (;;) {
    {
      MutexLock lock(mutex_);
      if (stopped_) return;
      if (!WaitOneInterval(interval)) continue;
    }
    SendEvent(host_);
  }
}

bool Watchdog::WaitOneInterval(boost::chrono::milliseconds interval) {
  const auto deadline = boost::chrono::steady_clock::now() + interval;
  const bool timedOut = changed_.WaitUntil(mutex_, deadline);
  return timedOut && !stopped_ && boost::chrono::steady_clock::now() >= deadline;
}

void Watchdog::MarkStopped() {
  {
    MutexLock lock(mutex_);
    stopped_ = true;
  }
  changed_.NotifyAll();
}

}  // namespace tvx
