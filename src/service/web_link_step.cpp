#include "service/web_link_step.h"

#include "config/event_types.h"

namespace tvx {
namespace {

// Whether there may be video to search for. A test message has none, but shows whether the web
// server can be asked.
bool MayHaveVideo(const NotifyWorkItem& item) {
  return IsVideoEvent(item.facts.eventType) || item.source.value == NotifyWorkItem::kNoSource ||
         !item.cameras.empty();
}

}  // namespace

std::string WebLinkFor(const NotifyWorkItem& item, HostServiceEntry host, const WebFetch& fetch) {
  WebLinkEvent event;
  // Without an address the reader is told so, whatever the event.
  event.fromVideoSource = item.config->webAddress.empty() || MayHaveVideo(item);
  event.windowStart = item.facts.eventTime - item.preTriggerSeconds;
  event.windowEnd = item.facts.eventTime + item.profile->MaxVideoSeconds;
  return BuildWebLink(event, item.config->webAddress, item.system->serial, item.cameras,
                      {kModuleId, host}, fetch);
}

}  // namespace tvx
