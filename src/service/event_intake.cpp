#include "service/event_intake.h"

#include <memory>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "config/event_types.h"
#include "service/notification_builder.h"
#include "service/notify_callback.h"
#include "video/video_source.h"

namespace tvx {
namespace {

// A clip may be late by this much before its notification goes out without waiting for it.
constexpr std::int32_t kGraceSeconds = 2;

bool IsSameEvent(const NotifyWorkItem& item, const ProfileEvent& event) {
  return item.isStart == event.isStart && item.eventSeconds == event.time &&
         item.eventMilliseconds == event.milliseconds;
}

// A later event of its source ends what a parked notification was waiting to show: the end of a
// start, a new start after an end. Other profiles of the very same event do not.
void ReleaseEarlier(const ProfileEvent& event, ServiceState& state) {
  const SourceId source = event.Source().source;
  if (source == SourceId{}) return;
  state.parked.ReleaseIf([&](const SNOTIFY_CALLBACK& callback) {
    const NotifyWorkItem& item = *callback.Item();
    if (item.source != source || IsSameEvent(item, event)) return false;
    switch (item.profile->EventEdge) {
      case event_edge::kBoth:
        return true;
      case event_edge::kEnd:
        return event.isStart;
      case event_edge::kStart:
        return !event.isStart;
      default:
        return false;
    }
  });
}

bool IsDue(const ProfileEvent& event, const NotifyProfile& profile) {
  if (event.isTest) return true;
  switch (profile.EventEdge) {
    case event_edge::kBoth:
      return true;
    case event_edge::kEnd:
      return !event.isStart;
    case event_edge::kStart:
      return event.isStart;
    default:
      return false;
  }
}

std::shared_ptr<SNOTIFY_CALLBACK> MakeCallback(const std::shared_ptr<NotifyWorkItem>& item,
                                               ServiceState& state) {
  const std::int64_t deadline =
      WallSeconds() + item->profile->MaxVideoSeconds + std::int64_t{kGraceSeconds};
  return std::make_shared<SNOTIFY_CALLBACK>(state.parked, item, deadline);
}

// Starts the capture of one video input.
void StartCapture(SourceId input, const std::shared_ptr<SNOTIFY_CALLBACK>& callback,
                  ServiceState& state, IntakeOutcome& outcome) {
  NotifyWorkItem& item = *callback->Item();
  const ClipSource source = FindClipSource(input, state.Directory(), state.buffers.Selection());
  if (!source.mapped) LogUnmappedInput(outcome.log);
  auto clip = state.buffers.TakeClip(source.streamId, item.preTriggerSeconds,
                                     item.profile->MaxVideoSeconds, callback);
  if (clip == nullptr) LogNoFrames(outcome.log, source.streamId);
  item.videos.push_back({state.Directory().Name(NameKind::VideoInput, input), std::move(clip)});
}

const std::vector<EventReference>& SourcesOf(const ProfileEvent& event,
                                             const SystemDirectory& directory) {
  return event.fromGroup ? directory.GroupMembers(event.Source().source) : event.sources;
}

// Queues a notification at once, or parks it until its clips are complete.
void TakeUp(const ProfileEvent& event, const std::shared_ptr<NotifyWorkItem>& item,
            ServiceState& state, IntakeOutcome& outcome) {
  std::shared_ptr<SNOTIFY_CALLBACK> callback;  // for a notification with captures
  for (const EventReference& source : SourcesOf(event, state.Directory())) {
    if (!IsVideoEvent(source.type)) continue;
    item->cameras.push_back(source.source);
    if (!item->attachVideo) continue;
    if (callback == nullptr) callback = MakeCallback(item, state);
    StartCapture(source.source, callback, state, outcome);
  }
  outcome.log.AddText(LogLevel::Information, ProfileLine(*item, event, state.Directory()));
  if (callback == nullptr) {
    outcome.dispatched.push_back(item);
  } else if (HasOpenClip(*item)) {
    state.parked.AddWaiting(callback);
  } else {
    state.parked.AddReady(callback);
  }
}

void ReceiveEvent(const ProfileEvent& event, ServiceState& state, IntakeOutcome& outcome) {
  ReleaseEarlier(event, state);
  const auto found = state.config->profiles.find(event.profileId);
  if (found == state.config->profiles.end()) {
    outcome.log.Add(LogLevel::Information,
                    "Received a notification request for an unknown profile %d. Request will be "
                    "ignored",
                    event.profileId);
    return;
  }
  const NotifyProfile& profile = found->second;
  if (!event.action || !IsDue(event, profile)) return;
  if (!state.throttle.Admit(profile.ID, profile.ThrottleSeconds, TickNow())) return;

  const auto item = BuildNotification(event, profile, state);
  if (state.config->secondReviewerMode && item->attachVideo) {
    item->attachVideo = false;
    outcome.log.Add(LogLevel::Warning, "Attachments will be omitted for \"%s\"",
                    profile.description.c_str());
  }
  if (item->isTest) {
    outcome.dispatched.push_back(item);
  } else {
    TakeUp(event, item, state, outcome);
  }
}

}  // namespace

void ReceiveEvents(const EventDocument& document, ServiceState& state, IntakeOutcome& outcome) {
  state.serial = document.serial.value_or(state.serial);
  state.description = document.description.value_or(state.description);
  state.macAddress = document.macAddress.value_or(state.macAddress);
  for (const ProfileEvent& event : document.events) ReceiveEvent(event, state, outcome);
  DispatchReady(state, outcome);
}

void DispatchReady(ServiceState& state, IntakeOutcome& outcome) {
  WorkQueue::Items items;
  for (const ParkedNotifications::Callback& callback : state.parked.Ready()) {
    items.push_back(callback->Item());
  }
  // Nothing below can fail, so no notification is lost between the lists.
  state.parked.ClearReady();
  for (const WorkQueue::Item& item : items) {
    for (const AttachmentSource& video : item->videos) {
      if (video.clip != nullptr) video.clip->Finish(outcome.dropped);
    }
  }
  if (!items.empty()) state.buffers.DropCompleteClips(outcome.dropped);
  outcome.dispatched.splice(outcome.dispatched.end(), items);
}

}  // namespace tvx
