#include "config/templates.h"

#include "config/date_template.h"
#include "config/event_types.h"

namespace tvx {
namespace {

constexpr const char* kWebLink = "{weblink}";
constexpr const char* kSource = "{source}";
constexpr const char* kEventType = "{event type}";
constexpr const char* kSystemName = "{system name}";
constexpr const char* kSerial = "{serial}";
constexpr const char* kLicensedMac = "{licensed mac}";
constexpr const char* kEventState = "{event state}";

void ReplaceFirst(std::string& text, const std::string& placeholder, const std::string& value) {
  const std::size_t at = text.find(placeholder);
  if (at != std::string::npos) text.replace(at, placeholder.size(), value);
}

}  // namespace

bool ContainsPlaceholder(const std::string& text) {
  for (const char* placeholder :
       {kWebLink, kSource, kEventType, kSystemName, kSerial, kLicensedMac, kEventState}) {
    if (text.find(placeholder) != std::string::npos) return true;
  }
  return ContainsDate(text);
}

void ReplaceEventType(std::int32_t eventType, std::string& text) {
  if (eventType == event_type::kTestMessage) {
    ReplaceFirst(text, kEventType, "[Test Event Type]");
  } else if (eventType <= event_type::kInvalid) {
    return;
  } else if (IsSystemEvent(eventType) || IsDeviceHealthEvent(eventType)) {
    ReplaceFirst(text, kEventType, "Health");
  } else {
    ReplaceFirst(text, kEventType, EventTypeName(eventType));
  }
}

void ExpandTemplates(const TemplateFacts& facts, const WebLinkSource& webLink, std::string& subject,
                     std::string& body) {
  if (body.find(kWebLink) != std::string::npos) ReplaceFirst(body, kWebLink, webLink());

  ReplaceEventType(facts.eventType, body);
  ReplaceEventType(facts.eventType, subject);

  const std::string& source =
      IsSystemEvent(facts.eventType) ? EventTypeName(facts.eventType) : facts.sourceName;
  struct Replacement {
    const char* placeholder;
    const std::string& value;
  };
  for (const Replacement& replacement : {Replacement{kSource, source},
                                         {kSystemName, facts.systemName},
                                         {kSerial, facts.serial},
                                         {kLicensedMac, facts.macAddress},
                                         {kEventState, facts.eventState}}) {
    ReplaceFirst(body, replacement.placeholder, replacement.value);
    ReplaceFirst(subject, replacement.placeholder, replacement.value);
  }

  // Last, because it removes every token that it does not know.
  ExpandDates(facts.eventTime, subject);
  ExpandDates(facts.eventTime, body);
}

}  // namespace tvx
