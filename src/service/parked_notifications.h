// The notifications that wait for their clips, and those that no longer do and go to the worker
// next.
//
// Threads: the host's Write paths only. Locks: none of its own; the intake mutex covers it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "service/notify_callback.h"

namespace tvx {

class ParkedNotifications {
 public:
  using Callback = std::shared_ptr<SNOTIFY_CALLBACK>;

  // Parks a notification until its clips report, its deadline passes or something releases it.
  void AddWaiting(Callback callback);

  // For a notification that has nothing to wait for.
  void AddReady(Callback callback);

  // Moves one from waiting to ready; nothing when it is not waiting (any more).
  void MoveToReady(const SNOTIFY_CALLBACK& callback);

  // Moves all that the predicate chooses, in their order.
  void ReleaseIf(const std::function<bool(const SNOTIFY_CALLBACK&)>& isReleased);

  // Moves all whose deadline is strictly earlier than now (seconds since 1970).
  void ReleaseDue(std::int64_t now);

  const std::vector<Callback>& Waiting() const { return waiting_; }
  // In the order in which they became ready.
  const std::vector<Callback>& Ready() const { return ready_; }
  void ClearReady() noexcept { ready_.clear(); }

 private:
  std::vector<Callback> waiting_;
  std::vector<Callback> ready_;
};

}  // namespace tvx
