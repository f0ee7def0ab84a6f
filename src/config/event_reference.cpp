#include "config/event_reference.h"

#include <optional>

#include "config/event_types.h"
#include "config/xml_document.h"

namespace tvx {

EventReference ReadEventReference(const TiXmlElement* element) {
  if (element == nullptr) return {};
  const std::optional<std::uint32_t> id = PatternAttribute(*element, "ID");
  const std::optional<std::int32_t> type = IntAttribute(*element, "Type");
  if (!id || !type) return {};
  const std::uint32_t mask = *type == event_type::kAnalytic ? kAnalyticMask : 0xFFFFFFFFu;
  return {{*id & mask}, *type};
}

EventReference ReadSourceGroupReference(const TiXmlElement* element) {
  std::optional<std::uint32_t> id;
  if (element != nullptr) id = PatternAttribute(*element, "ID");
  return {{kSourceGroupPart | (id.value_or(0) & 0xFFu)}, event_type::kSourceGroup};
}

}  // namespace tvx
