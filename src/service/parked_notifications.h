// The notifications that wait for their clips, and those that no longer do and go to the worker
// next.
//
// Threads: the host's Write paths only. Locks: none of its own; the intake mutex covers it.
// Cost:    of parking, releasing and telling that a clip is complete, the logarithm of how many
//          wait; of a tick, their number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

#include "service/work_item.h"
#include "service/work_queue.h"
#include "video/notify_ready.h"

namespace tvx {

class ParkedNotifications;

// A notification with captures: what its clips call when they are complete, and what the tick
// releases when they take too long. Always held by shared pointer, and weakly by its open clips.
class SNOTIFY_CALLBACK : public INotifyReady {
 public:
  // The list outlives the callback's last use. The deadline is in seconds since 1970: after it the
  // notification goes out with what its clips have.
  SNOTIFY_CALLBACK(ParkedNotifications& parked, std::shared_ptr<NotifyWorkItem> item,
                   std::int64_t deadline);

  // Counts one clip more that is going to call Ready, or was found not to.
  void Expect() { ++openClips_; }
  void ExpectNoMore() { --openClips_; }
  bool HasOpenClip() const { return openClips_ != 0; }

  // Called by a clip of the item, under the intake mutex. Once no clip of the item is open, the
  // notification is ready.
  void Ready() noexcept override;

  const std::shared_ptr<NotifyWorkItem>& Item() const { return item_; }
  std::int64_t Deadline() const { return deadline_; }

 private:
  friend class ParkedNotifications;

  ParkedNotifications& parked_;
  const std::shared_ptr<NotifyWorkItem> item_;
  const std::int64_t deadline_;
  std::size_t openClips_ = 0;
  // Its place in the list, and its number among all that ever waited. 0: it does not wait.
  std::list<std::shared_ptr<SNOTIFY_CALLBACK>>::iterator place_;
  std::uint64_t number_ = 0;
};

class ParkedNotifications {
 public:
  using Callback = std::shared_ptr<SNOTIFY_CALLBACK>;
  // A list, because its nodes change hands without an allocation that could fail.
  using Callbacks = std::list<Callback>;

  // Parks a notification until its clips report, its deadline passes or something releases it.
  void AddWaiting(Callback callback);

  // For a notification that has nothing to wait for.
  void AddReady(Callback callback) { ready_.push_back(std::move(callback)); }

  // Moves one from waiting to ready; nothing when it is not waiting (any more).
  void MoveToReady(SNOTIFY_CALLBACK& callback) noexcept;

  // The number of the youngest that ever waited.
  std::uint64_t Newest() const { return added_; }

  // A start or end at a source releases what waits to show the time before it: of those that are
  // not younger than a number all whose profile notifies of the other edge, or of both.
  void ReleaseEarlier(SourceId source, bool isStart, std::uint64_t youngest) noexcept;

  // Moves all whose deadline is strictly earlier than now (seconds since 1970).
  void ReleaseDue(std::int64_t now) noexcept;

  // Takes the oldest ones out, at most so many, ready ones first, and appends their items.
  void TakeOldest(std::size_t count, WorkQueue::Items& to);

  std::size_t Size() const { return waiting_.size() + ready_.size(); }
  const Callbacks& Waiting() const { return waiting_; }
  // In the order in which they became ready.
  const Callbacks& Ready() const { return ready_; }
  void ClearReady() noexcept { ready_.clear(); }

 private:
  using Key = std::tuple<std::uint32_t, std::int32_t, std::uint64_t>;  // source, edge, number
  static Key KeyOf(const SNOTIFY_CALLBACK& callback, std::uint64_t number);
  SNOTIFY_CALLBACK* Oldest(SourceId source, std::int32_t edge) const;

  Callbacks waiting_;  // by number
  Callbacks ready_;
  std::map<Key, SNOTIFY_CALLBACK*> bySource_;  // the waiting ones
  std::uint64_t added_ = 0;
};

}  // namespace tvx
