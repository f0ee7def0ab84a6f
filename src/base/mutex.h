// A mutex and a condition variable that clang can check, thin over Boost's.
//
// Threads: any. Errors: a failure of the locking library is raised as its own exception
//          (boost::lock_error, boost::condition_error) and is fatal by design: nobody catches it.
// Not here: the order of the locks, which docs/architecture.md states once.
#pragma once

#include <boost/chrono/system_clocks.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include "base/thread_annotations.h"

namespace tvx {

class CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  friend class ConditionVariable;
  boost::mutex mutex_;
};

// Holds a mutex for a scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// Waits are interruptible and may end without a reason: callers loop over their condition.
class ConditionVariable {
 public:
  using SteadyTime = boost::chrono::steady_clock::time_point;

  void Wait(Mutex& mutex) REQUIRES(mutex) {
    Borrowed borrowed(mutex.mutex_);
    changed_.wait(borrowed.lock);
  }

  // True when the time-out ended the wait, false when a signal did.
  bool WaitUntil(Mutex& mutex, SteadyTime deadline) REQUIRES(mutex) {
    Borrowed borrowed(mutex.mutex_);
    return changed_.wait_until(borrowed.lock, deadline) == boost::cv_status::timeout;
  }

  void NotifyOne() { changed_.notify_one(); }
  void NotifyAll() { changed_.notify_all(); }

 private:
  // Boost waits on a lock object; the caller holds the mutex through a MutexLock. This lends one to
  // the other and gives it back locked, also when an interruption leaves the wait by exception.
  struct Borrowed {
    explicit Borrowed(boost::mutex& mutex) : lock(mutex, boost::adopt_lock) {}
    ~Borrowed() { lock.release(); }
    Borrowed(const Borrowed&) = delete;
    Borrowed& operator=(const Borrowed&) = delete;
    boost::unique_lock<boost::mutex> lock;
  };

  boost::condition_variable changed_;
};

}  // namespace tvx
