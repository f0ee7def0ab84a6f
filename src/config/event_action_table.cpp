#include "config/event_action_table.h"

#include <tinyxml.h>

#include <cstdint>

#include "config/event_source_key.h"
#include "config/xml_children.h"
#include "config/xml_document.h"

namespace tvx {
namespace {

bool Notifies(const TiXmlElement& event) {
  for (const TiXmlElement& action : Children(event, "Action")) {
    if (action.FirstChildElement("Notify") != nullptr) return true;
  }
  return false;
}

void AddSource(SourceId source, EventActionTable& table) {
  if (source.value != 0) table.sources.insert(source);
}

// Group identifiers are compared in full here: only events know no more than their low 8 bits.
using GroupIds = std::set<std::uint32_t>;

void AddNotifying(const TiXmlElement& event, EventActionTable& table, GroupIds& groups) {
  const SourceId source = EventSourceKey(event);
  AddSource(source, table);
  if (source.value != 0) return;
  for (const TiXmlElement& group : Children(event, "SourceGroup")) {
    if (const auto id = PatternAttribute(group, "ID")) groups.insert(*id);
  }
}

void AddMembers(const TiXmlElement& events, const GroupIds& groups, EventActionTable& table) {
  for (const TiXmlElement& group : Children(events, "SourceGroup")) {
    const auto id = PatternAttribute(group, "ID");
    if (!id || groups.count(*id) == 0) continue;
    for (const TiXmlElement& entry : Children(group, "Entry")) {
      AddSource(EventSourceKey(entry), table);
    }
  }
}

}  // namespace

std::optional<EventActionTable> ReadEventActionTable(const TiXmlElement& root) {
  if (root.FirstChildElement("Events") == nullptr) return std::nullopt;
  EventActionTable table;
  GroupIds groups;
  for (const TiXmlElement& events : Children(root, "Events")) {
    for (const TiXmlElement& event : Children(events)) {
      if (Notifies(event)) AddNotifying(event, table, groups);
    }
  }
  for (const TiXmlElement& events : Children(root, "Events")) AddMembers(events, groups, table);
  return table;
}

}  // namespace tvx
