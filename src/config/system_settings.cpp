#include "config/system_settings.h"

#include <tinyxml.h>

#include "config/xml_children.h"
#include "config/xml_document.h"

namespace tvx {

std::vector<std::pair<std::int32_t, std::int32_t>> ReadPreAlarms(const TiXmlElement& root) {
  std::vector<std::pair<std::int32_t, std::int32_t>> preAlarms;
  for (const TiXmlElement& events : Children(root, "Events")) {
    for (const TiXmlElement& event : Children(events)) {
      const auto id = IntAttribute(event, "ID");
      const auto preAlarm = IntAttribute(event, "PreAlarm");
      if (id && preAlarm) preAlarms.emplace_back(*id, *preAlarm);
    }
  }
  return preAlarms;
}

std::optional<bool> ReadSecondReviewer(const TiXmlElement& root) {
  for (const TiXmlElement& users : Children(root, "Users")) {
    for (const TiXmlElement& reviewer : Children(users, "SecondReviewer")) {
      if (const auto enabled = IntAttribute(reviewer, "Enabled")) return *enabled != 0;
    }
  }
  return std::nullopt;
}

}  // namespace tvx
