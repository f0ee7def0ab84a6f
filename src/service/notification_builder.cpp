#include "service/notification_builder.h"

#include <algorithm>

#include "config/event_types.h"
#include "config/source_text.h"

namespace tvx {
namespace {

constexpr std::size_t kProfileLineSize = 500;

std::int32_t PreTriggerOf(const ProfileEvent& event, const NotifyConfig& config) {
  const auto found = config.preAlarms.find(event.action.value_or(0));
  return found == config.preAlarms.end() ? 0 : found->second;
}

const char* EventState(const ProfileEvent& event) {
  return event.isStart ? "Start" : "End";
}

}  // namespace

std::shared_ptr<NotifyWorkItem> BuildNotification(const ProfileEvent& event,
                                                  const NotifyProfile& profile,
                                                  const ServiceState& state) {
  auto item = std::make_shared<NotifyWorkItem>();
  item->config = state.config;
  item->profile = &profile;
  item->attachVideo = profile.attach;
  item->preTriggerSeconds = PreTriggerOf(event, *state.config);
  item->isTest = event.isTest;
  item->isStart = event.isStart;
  item->eventSeconds = event.time;
  item->eventMilliseconds = event.milliseconds;
  item->facts.eventTime = event.time;
  item->system = state.system;
  if (item->isTest) {
    item->source = SourceId{NotifyWorkItem::kNoSource};
    item->facts.eventType = event_type::kTestMessage;
    item->facts.sourceName = "[Test Event Source]";
  } else {
    const EventReference reference = event.Source();
    item->source = reference.source;
    item->facts.eventType = reference.type;
    item->facts.sourceName =
        ShortFact(SourceText(state.Directory(), reference.source, reference.type));
  }
  item->facts.eventState = EventState(event);
  return item;
}

std::string ProfileLine(const NotifyWorkItem& item, const ProfileEvent& event,
                        const SystemDirectory& directory) {
  std::string line;
  line.reserve(kProfileLineSize);
  line.append("Profile ").append(item.profile->description);
  line.append(": PreTrigger(").append(std::to_string(item.preTriggerSeconds)).append(")");
  line.append(", MaxDuration(").append(std::to_string(item.profile->MaxVideoSeconds)).append(")");
  line.append(", MaxSizeMB(").append(std::to_string(item.config->EmailSizeLimitMB)).append(")");
  line.append(event.fromGroup ? ",  event source group (" : ", event source (");
  line.append(item.facts.sourceName).append(")");
  for (std::size_t i = 1; i < event.sources.size() && line.size() < kProfileLineSize; ++i) {
    const EventReference& source = event.sources[i];
    line.append(", event source (").append(SourceText(directory, source.source, source.type));
    line.append(")");
  }
  line.append(", event state (").append(EventState(event)).append(")");
  line.resize(std::min(line.size(), kProfileLineSize));
  return line;
}

}  // namespace tvx
