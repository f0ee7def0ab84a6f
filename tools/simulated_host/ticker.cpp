#include "simulated_host/ticker.h"

#include <utility>

namespace tvx::tool {

Ticker::Ticker(boost::chrono::milliseconds interval, std::function<void()> tick)
    : thread_([this, interval, call = std::move(tick)] { Run(interval, call); }) {}

Ticker::~Ticker() {
  {
    MutexLock lock(mutex_);
    stopped_ = true;
    changed_.NotifyAll();
  }
  thread_.join();
}

void Ticker::Run(boost::chrono::milliseconds interval, const std::function<void()>& tick) {
  auto next = boost::chrono::steady_clock::now() + interval;
  for (;;) {
    {
      MutexLock lock(mutex_);
      while (!stopped_ && boost::chrono::steady_clock::now() < next) {
        changed_.WaitUntil(mutex_, next);
      }
      if (stopped_) return;
    }
    tick();
    next += interval;
  }
}

}  // namespace tvx::tool
