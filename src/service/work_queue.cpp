#include "service/work_queue.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
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

void WorkQueue::TakeOldest(std::size_t count, Items& to) noexcept {
  MutexLock lock(mutex_);
  const auto end =
      std::next(items_.begin(), static_cast<std::ptrdiff_t>(std::min(count, items_.size())));
  to.splice(to.end(), items_, items_.begin(), end);
}

std::size_t WorkQueue::Size() {
  MutexLock lock(mutex_);
  return items_.size();
}

WorkQueue::Item WorkQueue::Take() {
  MutexLock lock(mutex_);
  while (IsEmpty()) added_.Wait(mutex_);
  return PopFront();
}

WorkQueue::Item WorkQueue::TakeWithin(boost::chrono::milliseconds wait) {
  const auto deadline = boost::chrono::steady_clock::now() + wait;
  MutexLock lock(mutex_);
  while (IsEmpty()) {
    if (added_.WaitUntil(mutex_, deadline)) break;
  }
  return IsEmpty() ? nullptr : PopFront();
}

WorkQueue::Item WorkQueue::PopFront() {
  if (std::exchange(stopDue_, false)) return stop_;
  Item item = std::move(items_.front());
  items_.pop_front();
  return item;
}

}  // namespace tvx
