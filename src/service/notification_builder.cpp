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

MessageContent BuildContent(const ProfileEvent& event, const NotifyProfile& profile) {
  MessageContent content;
  content.profileId = profile.ID;
  content.from = profile.from;
  content.to = profile.to;
  content.cc = profile.cc;
  content.bcc = profile.bcc;
  content.subject = profile.subject;
  content.body = profile.body;
  content.eventSeconds = event.time;
  content.eventMilliseconds = static_cast<std::uint16_t>(event.milliseconds);
  return content;
}

}  // namespace

std::shared_ptr<NotifyWorkItem> BuildNotification(const ProfileEvent& event,
                                                  const NotifyProfile& profile,
                                                  const ServiceState& state) {
  auto item = std::make_shared<NotifyWorkItem>();
  item->attachVideo = profile.attach;
  item->usesPlaceholders = profile.usesPlaceholders;
  item->profileDescription = profile.description;
  item->maxDurationSeconds = profile.MaxVideoSeconds;
  item->eventEdge = profile.EventEdge;
  item->content = BuildContent(event, profile);

  item->preTriggerSeconds = PreTriggerOf(event, state.config);
  item->bufferSize = MegabytesToBytes(state.config.EmailSizeLimitMB);
  item->servers = state.config.servers;
  item->webAddress = state.config.webAddress;

  const EventReference reference = event.Source();
  item->source = reference.source;
  item->isStart = event.isStart;
  item->eventMilliseconds = event.milliseconds;
  item->facts.eventTime = item->content.eventSeconds;
  item->facts.eventType = reference.type;
  item->facts.sourceName = SourceText(state.Directory(), reference.source, reference.type);
  item->facts.serial = state.serial;
  if (profile.usesPlaceholders) {
    item->facts.systemName = state.description;
    item->facts.macAddress = state.macAddress;
    item->facts.eventState = EventState(event);
  }
  return item;
}

void MakeTestMessage(const ProfileEvent& event, NotifyWorkItem& item) {
  item.content.body = event.message + "\r\n" + item.content.body;
  item.source = SourceId{NotifyWorkItem::kNoSource};
  item.facts.eventType = event_type::kTestMessage;
  item.facts.sourceName = "[Test Event Source]";
}

std::string ProfileLine(const NotifyWorkItem& item, const ProfileEvent& event,
                        const SystemDirectory& directory, const NotifyConfig& config) {
  std::string line = "Profile " + item.profileDescription;
  line += ": PreTrigger(" + std::to_string(item.preTriggerSeconds) + ")";
  line += ", MaxDuration(" + std::to_string(item.maxDurationSeconds) + ")";
  line += ", MaxSizeMB(" + std::to_string(config.EmailSizeLimitMB) + ")";
  if (event.fromGroup) {
    line += ",  event source group (" + item.facts.sourceName + ")";
  } else if (event.sources.empty()) {
    line += ", event source (" + item.facts.sourceName + ")";
  }
  for (const EventReference& source : event.sources) {
    if (event.fromGroup) break;
    line += ", event source (" + SourceText(directory, source.source, source.type) + ")";
  }
  line += std::string(", event state (") + EventState(event) + ")";
  line.resize(std::min(line.size(), kProfileLineSize));
  return line;
}

}  // namespace tvx
