#include "service/parked_notifications.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace tvx {

void ParkedNotifications::AddWaiting(Callback callback) {
  waiting_.push_back(std::move(callback));
}

void ParkedNotifications::AddReady(Callback callback) {
  ready_.push_back(std::move(callback));
}

void ParkedNotifications::MoveToReady(const SNOTIFY_CALLBACK& callback) {
  const auto found = std::find_if(waiting_.begin(), waiting_.end(), [&](const Callback& candidate) {
    return candidate.get() == &callback;
  });
  if (found == waiting_.end()) return;
  ready_.push_back(*found);
  waiting_.erase(found);
}

void ParkedNotifications::ReleaseIf(
    const std::function<bool(const SNOTIFY_CALLBACK&)>& isReleased) {
  const auto released =
      std::stable_partition(waiting_.begin(), waiting_.end(),
                            [&](const Callback& callback) { return !isReleased(*callback); });
  // Room first: an allocation failure must not lose what was already moved.
  ready_.reserve(ready_.size() + static_cast<std::size_t>(waiting_.end() - released));
  std::move(released, waiting_.end(), std::back_inserter(ready_));
  waiting_.erase(released, waiting_.end());
}

void ParkedNotifications::ReleaseDue(std::int64_t now) {
  ReleaseIf([now](const SNOTIFY_CALLBACK& callback) { return callback.Deadline() < now; });
}

}  // namespace tvx
