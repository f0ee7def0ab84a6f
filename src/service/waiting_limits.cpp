#include "service/waiting_limits.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/input_limits.h"

namespace tvx {

void LimitWaitingVideo(ServiceState& state, IntakeOutcome& outcome) {
  if (state.buffers.WaitingBytes() <= kMaxWaitingVideoBytes / 2) state.toldOfVideo = false;
  if (!state.buffers.KeepWaitingWithin(kMaxWaitingVideoBytes, outcome.dropped)) return;
  if (std::exchange(state.toldOfVideo, true)) return;
  outcome.log.Add(LogLevel::Warning,
                  "More than %u MB of video wait to be sent. The oldest clips are given up; their "
                  "notifications will be sent without them",
                  static_cast<unsigned>(kMaxWaitingVideoBytes >> 20));
}

void LimitWaitingNotifications(WorkQueue& queue, ServiceState& state, IntakeOutcome& outcome) {
  const std::size_t waiting = queue.Size() + outcome.dispatched.size() + state.parked.Size();
  if (waiting <= kMaxWaitingNotifications / 2) state.toldOfNotifications = false;
  if (waiting <= kMaxWaitingNotifications) return;

  std::size_t excess = waiting - kMaxWaitingNotifications;
  WorkQueue::Items ended;
  queue.TakeOldest(excess, ended);
  excess -= std::min(excess, ended.size());
  const std::size_t dispatched = std::min(excess, outcome.dispatched.size());
  ended.splice(ended.end(), outcome.dispatched, outcome.dispatched.begin(),
               std::next(outcome.dispatched.begin(), static_cast<std::ptrdiff_t>(dispatched)));
  state.parked.TakeOldest(excess - dispatched, ended);
  for (const WorkQueue::Item& item : ended) {
    for (const AttachmentSource& video : item->videos) {
      if (video.clip == nullptr) continue;
      state.buffers.HandOver(*video.clip);
      video.clip->LetGo(outcome.dropped);
    }
  }
  state.buffers.DropCompleteClips(outcome.dropped);
  outcome.ended.splice(outcome.ended.end(), ended);
  if (std::exchange(state.toldOfNotifications, true)) return;
  outcome.log.Add(LogLevel::Error,
                  "More than %u notifications wait to be sent. The oldest ones will not be sent",
                  static_cast<unsigned>(kMaxWaitingNotifications));
}

}  // namespace tvx
