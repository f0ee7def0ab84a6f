// The work queue between the host's threads, which add, and the one worker, which takes.
//
// Owns:    the items that wait.
// Threads: any may enqueue; the worker takes.
// Locks:   its own mutex, for the time of a push or a pop; signalled once per addition.
#pragma once

#include <boost/chrono/duration.hpp>
#include <list>
#include <memory>

#include "base/mutex.h"
#include "service/work_item.h"

namespace tvx {

class WorkQueue {
 public:
  using Item = std::shared_ptr<NotifyWorkItem>;
  // A list, because its nodes change hands without an allocation that could fail: what has been
  // accepted reaches the queue.
  using Items = std::list<Item>;

  // Adds the items behind all others, in their order.
  void Enqueue(Items items) noexcept EXCLUDES(mutex_);

  // Puts the stop item before all others. It is there from the start, so that the worker can be
  // ended when there is no memory left.
  void EnqueueStop() noexcept EXCLUDES(mutex_);

  // Moves the oldest items, at most so many, to the end of others. Not the stop item.
  void TakeOldest(std::size_t count, Items& to) noexcept EXCLUDES(mutex_);
  std::size_t Size() EXCLUDES(mutex_);

  // Waits for an item, however long that takes.
  Item Take() EXCLUDES(mutex_);

  // Waits for an item, at most so long; null when none came.
  Item TakeWithin(boost::chrono::milliseconds wait) EXCLUDES(mutex_);

 private:
  static Item MakeStop();
  bool IsEmpty() const REQUIRES(mutex_) { return items_.empty() && !stopDue_; }
  Item PopFront() REQUIRES(mutex_);

  const Item stop_ = MakeStop();
  Mutex mutex_;
  ConditionVariable added_;
  Items items_ GUARDED_BY(mutex_);
  bool stopDue_ GUARDED_BY(mutex_) = false;
};

}  // namespace tvx
