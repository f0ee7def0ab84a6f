#include "service/work_queue.h"

#include <utility>

namespace tvx {

WorkQueue::Item WorkQueue::MakeStop() {
  auto stop = std::make_shared<NotifyWorkItem>();
  stop->kind = NotifyWorkItem::Kind::Stop;
  return stop;
}

void WorkQueue::Enqueue(Items items) noexcept {
  if (items.empty()) return;
  {
    MutexLock lock(mutex_);
    items_.splice(items_.end(), items);
  }
  added_.NotifyOne();  // one worker takes them all
}

void WorkQueue::EnqueueStop() noexcept {
  {
    MutexLock lock(mutex_);
    stopDue_ = true;
  }
  added_.NotifyOne();
}

WorkQueue::Item WorkQueue::Take() {
  MutexLock lock(mutex_);
  while (HasNone()) added_.Wait(mutex_);
  return PopFront();
}

WorkQueue::Item WorkQueue::TakeWithin(boost::chrono::milliseconds wait) {
  const auto deadline = boost::chrono::steady_clock::now() + wait;
  MutexLock lock(mutex_);
  while (HasNone()) {
    if (added_.WaitUntil(mutex_, deadline)) break;
  }
  return HasNone() ? nullptr : PopFront();
}

WorkQueue::Item WorkQueue::PopFront() {
  if (std::exchange(stopDue_, false)) return stop_;
  Item item = std::move(items_.front());
  items_.pop_front();
  return item;
}

}  // namespace tvx
