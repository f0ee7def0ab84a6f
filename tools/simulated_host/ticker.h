// Calls a function at a steady pace on a thread of its own.
//
// Owns:    the thread, which ends with this object; a call that is under way is waited for.
// Threads: the function runs on the own thread only.
#pragma once

#include <boost/chrono/duration.hpp>
#include <functional>
#include <thread>

#include "base/mutex.h"

namespace tvx::tool {

class Ticker {
 public:
  Ticker(boost::chrono::milliseconds interval, std::function<void()> tick);
  ~Ticker();
  Ticker(const Ticker&) = delete;
  Ticker& operator=(const Ticker&) = delete;

 private:
  void Run(boost::chrono::milliseconds interval, const std::function<void()>& tick)
      EXCLUDES(mutex_);

  Mutex mutex_;
  ConditionVariable changed_;
  bool stopped_ GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace tvx::tool
