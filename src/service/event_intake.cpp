#include "service/event_intake.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "config/event_types.h"
#include "service/notification_builder.h"
#include "service/waiting_limits.h"
#include "video/video_source.h"

namespace tvx {
namespace {

// A clip may be late by this much before its notification goes out without waiting for it.
constexpr std::int32_t kGraceSeconds = 2;

// What a document does not say stays as it was.
void TakeSystemFacts(const EventDocument& document, ServiceState& state) {
  SystemFacts facts = *state.system;
  bool isNew = false;
  const auto take = [&](const std::optional<std::string>& told, std::string& fact) {
    if (!told) return;
    std::string text = ShortFact(*told);
    isNew = isNew || text != fact;
    fact = std::move(text);
  };
  take(document.serial, facts.serial);
  take(document.description, facts.description);
  take(document.macAddress, facts.macAddress);
  if (isNew) state.system = std::make_shared<const SystemFacts>(std::move(facts));
}

// A later event of its source ends what a parked notification was waiting to show: the end of a
// start, a new start after an end. Other entries of the document that parked it do not.
void ReleaseEarlier(const ProfileEvent& event, std::uint64_t youngest, ServiceState& state) {
  const SourceId source = event.Source().source;
  if (source == SourceId{}) return;
  state.parked.ReleaseEarlier(source, event.isStart, youngest);
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
  callback->Expect();
  auto clip = state.buffers.TakeClip(source.streamId, item.preTriggerSeconds,
                                     item.profile->MaxVideoSeconds, callback);
  if (clip == nullptr) {
    callback->ExpectNoMore();
    LogNoFrames(outcome.log, source.streamId);
  }
  item.videos.push_back(
      {ShortFact(state.Directory().Name(NameKind::VideoInput, input)), std::move(clip)});
}

const std::vector<EventReference>& SourcesOf(const ProfileEvent& event,
                                             const SystemDirectory& directory) {
  return event.fromGroup ? directory.GroupMembers(event.Source().source) : event.sources;
}

// Queues a notification at once, or parks it until its clips are complete.
void CaptureOrDispatch(const ProfileEvent& event, const std::shared_ptr<NotifyWorkItem>& item,
                       ServiceState& state, IntakeOutcome& outcome) {
  std::shared_ptr<SNOTIFY_CALLBACK> callback;  // for a notification with captures
  for (const EventReference& source : SourcesOf(event, state.Directory())) {
    if (!IsVideoEvent(source.type)) continue;
    item->cameras.push_back(source.source);
    if (!item->attachVideo) continue;
    if (callback == nullptr) callback = MakeCallback(item, state);
    StartCapture(source.source, callback, state, outcome);
    LimitWaitingVideo(state, outcome);  // one event may name thousands of sources
  }
  outcome.log.AddText(LogLevel::Information, ProfileLine(*item, event, state.Directory()));
  if (callback == nullptr) {
    outcome.dispatched.push_back(item);
  } else if (callback->HasOpenClip()) {
    state.parked.AddWaiting(callback);
  } else {
    state.parked.AddReady(callback);
  }
}

void ReceiveEvent(const ProfileEvent& event, ServiceState& state, IntakeOutcome& outcome) {
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
    CaptureOrDispatch(event, item, state, outcome);
  }
}

}  // namespace

void ReceiveEvents(const EventDocument& document, ServiceState& state, IntakeOutcome& outcome) {
  TakeSystemFacts(document, state);
  const std::uint64_t youngest = state.parked.Newest();
  for (const ProfileEvent& event : document.events) {
    ReleaseEarlier(event, youngest, state);
    ReceiveEvent(event, state, outcome);
  }
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
