// The source of an event, as documents name it.
// Threads: any; nothing is shared.
#pragma once

#include <cstdint>

#include "config/source_id.h"

class TiXmlElement;

namespace tvx {

struct EventReference {
  SourceId source;
  std::int32_t type = 0;  // event_type

  friend bool operator==(const EventReference& a, const EventReference& b) {
    return a.source == b.source && a.type == b.type;
  }
};

// Analytic events are matched without their sub-channel.
constexpr std::uint32_t kAnalyticMask = 0x0FFFFFFF;

// Reads "ID" and "Type". A missing element, or one that lacks either, gives no source and type 0.
EventReference ReadEventReference(const TiXmlElement* element);

// Reads the "ID" of a source group: its low 8 bits below kSourceGroupPart, with type Source Group;
// group 0 when it is missing.
EventReference ReadSourceGroupReference(const TiXmlElement* element);

}  // namespace tvx
