#include "service/work_queue.h"

#include <utility>

namespace tvx {

void WorkQueue::Enqueue(Items items) noexcept {
  if (!items.empty()) Splice(std::move(items), false);
}

void WorkQueue::EnqueueFirst(Item stop) {
  Items items;
  items.push_back(std::move(stop));
  Splice(std::move(items), true);
}

void WorkQueue::Splice(Items items, bool first) {
  {
    MutexLock lock(mutex_);
    items_.splice(first ? items_.begin() : items_.end(), items);
  }
  added_.NotifyOne();  // one worker takes them all
}

WorkQueue::Item WorkQueue::Take() {
  MutexLock lock(mutex_);
  while (items_.empty()) added_.Wait(mutex_);
  return PopFront();
}

WorkQueue::Item WorkQueue::TakeWithin(boost::chrono::milliseconds wait) {
  const auto deadline = boost::chrono::steady_clock::now() + wait;
  MutexLock lock(mutex_);
  while (items_.empty()) {
    if (added_.WaitUntil(mutex_, deadline)) break;
  }
  return items_.empty() ? nullptr : PopFront();
}

WorkQueue::Item WorkQueue::PopFront() {
  Item item = std::move(items_.front());
  items_.pop_front();
  return item;
}

}  // namespace tvx
