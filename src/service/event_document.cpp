#include "service/event_document.h"

#include <tinyxml.h>

#include <string_view>
#include <utility>

#include "base/clock.h"
#include "config/xml_children.h"
#include "config/xml_document.h"
#include "host/host_records.h"

namespace tvx {
namespace {

void ReadSources(const TiXmlElement& entry, ProfileEvent& event) {
  for (const TiXmlElement& source : Children(entry, "EventSource")) {
    event.sources.push_back(ReadEventReference(&source));
  }
  if (!event.sources.empty()) return;
  if (const TiXmlElement* group = entry.FirstChildElement("SourceGroup")) {
    event.fromGroup = true;
    event.sources.push_back(ReadSourceGroupReference(group));
  }
}

std::optional<ProfileEvent> ReadProfileEvent(const TiXmlElement& entry, std::int32_t now) {
  const auto alarm = IntAttribute(entry, "Alarm");
  if (!alarm) return std::nullopt;
  ProfileEvent event;
  event.isStart = *alarm != 0;
  event.profileId = IntAttribute(entry, "ID").value_or(0);
  event.action = IntAttribute(entry, "Action");
  const char* message = entry.Attribute("Message");
  event.isTest = message != nullptr && std::string_view(message) == kTestMessage;
  event.time = IntAttribute(entry, "Time").value_or(now);
  event.milliseconds = IntAttribute(entry, "Milliseconds").value_or(0);
  ReadSources(entry, event);
  return event;
}

void ReadServer(const TiXmlElement& root, EventDocument& document) {
  const TiXmlElement* servers = root.FirstChildElement("Servers");
  const TiXmlElement* server = servers ? servers->FirstChildElement("Server") : nullptr;
  if (server == nullptr) return;
  document.serial = TextAttribute(*server, "Serial");
  document.description = TextAttribute(*server, "Description");
  document.macAddress = TextAttribute(*server, "MAC");
}

}  // namespace

EventDocument ReadEventDocument(const TiXmlElement& root) {
  EventDocument document;
  const auto now = static_cast<std::int32_t>(WallSeconds());
  ReadServer(root, document);
  for (const TiXmlElement& notify : Children(root, "Notify")) {
    if (IntAttribute(notify, "ID") != static_cast<std::int32_t>(kModuleId)) continue;
    const TiXmlElement* profiles = notify.FirstChildElement("Profiles");
    if (profiles == nullptr) continue;
    for (const TiXmlElement& entry : Children(*profiles)) {
      if (auto event = ReadProfileEvent(entry, now)) document.events.push_back(std::move(*event));
    }
  }
  return document;
}

}  // namespace tvx
