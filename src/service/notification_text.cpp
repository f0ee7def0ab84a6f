#include "service/notification_text.h"

#include <cstdint>

#include "config/event_types.h"
#include "config/notify_profile.h"
#include "service/event_document.h"

namespace tvx {
namespace {

TemplateFacts FactsOf(const NotifyWorkItem& item) {
  TemplateFacts facts = item.facts;
  facts.systemName = item.system->description;
  facts.serial = item.system->serial;
  facts.macAddress = item.system->macAddress;
  return facts;
}

// Whether there may be video to search for. A test message has none, but shows whether the web
// server can be asked.
bool MayHaveVideo(const NotifyWorkItem& item) {
  return IsVideoEvent(item.facts.eventType) || item.source.value == NotifyWorkItem::kNoSource ||
         !item.cameras.empty();
}

}  // namespace

MessageContent ContentOf(const NotifyWorkItem& item) {
  const NotifyProfile& profile = *item.profile;
  MessageContent content;
  content.profileId = profile.ID;
  content.from = profile.from;
  content.to = profile.to;
  content.cc = profile.cc;
  content.bcc = profile.bcc;
  content.subject = profile.subject;
  content.body = item.isTest ? kTestMessage + ("\r\n" + profile.body) : profile.body;
  content.eventSeconds = item.eventSeconds;
  content.eventMilliseconds = static_cast<std::uint16_t>(item.eventMilliseconds);
  content.delivery = item.config->delivery;
  return content;
}

void ExpandTexts(const NotifyWorkItem& item, const WebLinkSource& webLink, std::string& subject,
                 std::string& body, const TemplateObservers& observers) {
  if (item.profile->usesPlaceholders) {
    ExpandTemplates(FactsOf(item), webLink, subject, body, observers);
  }
}

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
