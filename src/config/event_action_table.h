// Which sources have events that notify: the part of the host's event configuration that decides
// what video is worth keeping.
//
// A plain value, rebuilt whole from every full system document.
// Threads: any; the document must not change meanwhile.
// Errors:  malformed events are skipped; only memory exhaustion throws.
// Not here: how an event's source is found (event_source_key.h).
#pragma once

#include <optional>
#include <set>

#include "config/source_id.h"

class TiXmlElement;

namespace tvx {

struct EventActionTable {
  // The sources whose events carry a notify action, ascending, those of the source groups that
  // such events name included. Never holds 0.
  std::set<SourceId> sources;
};

// Reads the "tDVR" root of a full system document. Nothing when it has no "Events": such a document
// says nothing about events, so the previous table stays.
std::optional<EventActionTable> ReadEventActionTable(const TiXmlElement& root);

}  // namespace tvx
