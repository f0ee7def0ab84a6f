#include "service/message_text.h"

#include <cstdint>

#include "config/notify_profile.h"
#include "service/event_document.h"

namespace tvx {

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
  return content;
}

void ExpandTexts(const NotifyWorkItem& item, const WebLinkSource& webLink, std::string& subject,
                 std::string& body, const TemplateObservers& observers) {
  if (item.profile->usesPlaceholders) {
    ExpandTemplates(item.facts, webLink, subject, body, observers);
  }
}

}  // namespace tvx
