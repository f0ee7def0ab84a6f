#include "service/parked_notifications.h"

namespace tvx {

SNOTIFY_CALLBACK::SNOTIFY_CALLBACK(ParkedNotifications& parked,
                                   std::shared_ptr<NotifyWorkItem> item, std::int64_t deadline)
    : parked_(parked), item_(std::move(item)), deadline_(deadline) {}

void SNOTIFY_CALLBACK::Ready() noexcept {
  if (--openClips_ == 0) parked_.MoveToReady(*this);
}

void ParkedNotifications::AddWaiting(Callback callback) {
  SNOTIFY_CALLBACK& added = *callback;
  Callbacks place;
  place.push_back(std::move(callback));
  bySource_.emplace(KeyOf(added, added_ + 1), &added);
  added.number_ = ++added_;
  added.place_ = place.begin();
  waiting_.splice(waiting_.end(), place);
}

void ParkedNotifications::MoveToReady(SNOTIFY_CALLBACK& callback) noexcept {
  if (callback.number_ == 0) return;
  bySource_.erase(KeyOf(callback, callback.number_));
  callback.number_ = 0;
  ready_.splice(ready_.end(), waiting_, callback.place_);
}

void ParkedNotifications::ReleaseEarlier(SourceId source, bool isStart,
                                         std::uint64_t youngest) noexcept {
  for (;;) {
    SNOTIFY_CALLBACK* const first = Oldest(source, event_edge::kBoth);
    SNOTIFY_CALLBACK* const second =
        Oldest(source, isStart ? event_edge::kEnd : event_edge::kStart);
    const bool takesFirst =
        second == nullptr || (first != nullptr && first->number_ < second->number_);
    SNOTIFY_CALLBACK* const released = takesFirst ? first : second;
    if (released == nullptr || released->number_ > youngest) return;
    MoveToReady(*released);
  }
}

void ParkedNotifications::ReleaseDue(std::int64_t now) noexcept {
  for (auto next = waiting_.begin(); next != waiting_.end();) {
    SNOTIFY_CALLBACK& callback = **next++;
    if (callback.Deadline() < now) MoveToReady(callback);
  }
}

void ParkedNotifications::TakeOldest(std::size_t count, WorkQueue::Items& to) {
  for (; count > 0 && Size() > 0; --count) {
    if (ready_.empty()) MoveToReady(*waiting_.front());
    to.push_back(ready_.front()->Item());
    ready_.pop_front();
  }
}

ParkedNotifications::Key ParkedNotifications::KeyOf(const SNOTIFY_CALLBACK& callback,
                                                    std::uint64_t number) {
  return {callback.Item()->source.value, callback.Item()->profile->EventEdge, number};
}

SNOTIFY_CALLBACK* ParkedNotifications::Oldest(SourceId source, std::int32_t edge) const {
  const auto found = bySource_.lower_bound({source.value, edge, 0});
  if (found == bySource_.end()) return nullptr;
  const auto& [foundSource, foundEdge, number] = found->first;
  return foundSource == source.value && foundEdge == edge ? found->second : nullptr;
}

}  // namespace tvx
