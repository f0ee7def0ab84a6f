#include "config/event_source_key.h"

#include <tinyxml.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "config/event_types.h"
#include "config/xml_children.h"
#include "config/xml_document.h"

namespace tvx {
namespace {

// Paths end with a null pointer.
constexpr const char* kVideoInput[] = {"Video", "Input", nullptr};
constexpr const char* kInput[] = {"Input", nullptr};
constexpr const char* kChannel[] = {"Codec", "Encoder", "Channel", nullptr};

bool IsNamed(const TiXmlElement& element, const char* name) {
  return element.ValueStr() == name;
}

// The "Number" of an element that is known to have one. Identifiers are made of its low bits.
std::uint32_t NumberOf(const TiXmlElement& element) {
  return static_cast<std::uint32_t>(IntAttribute(element, "Number").value_or(0));
}

// The first element with an integer "Number" at the end of the path; parent when the path is empty.
const TiXmlElement* FirstNumbered(const TiXmlElement& parent, const char* const* path) {
  if (*path == nullptr) return IntAttribute(parent, "Number") ? &parent : nullptr;
  for (const TiXmlElement& child : Children(parent, *path)) {
    if (const TiXmlElement* found = FirstNumbered(child, path + 1)) return found;
  }
  return nullptr;
}

const TiXmlElement* FirstNumberedChild(const TiXmlElement& parent, const char* name) {
  const char* const path[] = {name, nullptr};
  return FirstNumbered(parent, path);
}

// An element of an event that names a device, with what it is a part of.
struct Owner {
  std::uint32_t id = 0;                  // of the group: "Devices" or "Analytics"
  const TiXmlElement* group = nullptr;   // null when the event names no device this way
  const TiXmlElement* device = nullptr;  // in the group, or beside it
};

Owner FindOwner(const TiXmlElement& event, const char* groupName) {
  const TiXmlElement* beside = FirstNumberedChild(event, "Device");
  for (const TiXmlElement& group : Children(event, groupName)) {
    const auto id = PatternAttribute(group, "ID");
    if (!id) continue;
    const TiXmlElement* inside = FirstNumberedChild(group, "Device");
    if (inside != nullptr) return {*id, &group, inside};
    if (beside != nullptr) return {*id, &group, beside};
  }
  return {};
}

// An element that may describe the source, and the "Context" it stands in, if any.
struct Part {
  const TiXmlElement* element = nullptr;
  const TiXmlElement* context = nullptr;
};

// Lists the children of the event, of its owner's elements and of each "Context" there, in document
// order. Everything else stays closed, "Action" above all.
void ListParts(const TiXmlElement& place, const TiXmlElement* context, const Owner& owner,
               std::vector<Part>& parts) {
  for (const TiXmlElement& child : Children(place)) {
    parts.push_back({&child, context});
    if (context != nullptr) continue;
    if (&child == owner.group || &child == owner.device) {
      ListParts(child, nullptr, owner, parts);
    } else if (IsNamed(child, "Context")) {
      ListParts(child, &child, owner, parts);
    }
  }
}

Part FindNumbered(const std::vector<Part>& parts, const char* const* path) {
  for (const Part& part : parts) {
    if (!IsNamed(*part.element, path[0])) continue;
    if (const TiXmlElement* found = FirstNumbered(*part.element, path + 1)) {
      return {found, part.context};
    }
  }
  return {};
}

// The context of a part: the one around it, else the first of the event.
const TiXmlElement* ContextOf(const Part& part, const std::vector<Part>& parts) {
  if (part.context != nullptr) return part.context;
  for (const Part& other : parts) {
    if (IsNamed(*other.element, "Context")) return other.element;
  }
  return nullptr;
}

SourceId MakeKey(const Owner& owner, std::uint32_t subChannel, const TiXmlElement& item) {
  return MakeSourceId(subChannel, owner.id, NumberOf(*owner.device), NumberOf(item));
}

// Nothing when the event has no "Devices" that name a device.
std::optional<SourceId> DevicesKey(const TiXmlElement& event) {
  const Owner owner = FindOwner(event, "Devices");
  if (owner.group == nullptr) return std::nullopt;
  std::vector<Part> parts;
  ListParts(event, nullptr, owner, parts);

  const Part input = FindNumbered(parts, kVideoInput);
  if (input.element != nullptr) {
    const TiXmlElement* context = ContextOf(input, parts);
    return MakeKey(owner, context == nullptr ? 0 : NumberOf(*context), *input.element);
  }
  const Part channel = FindNumbered(parts, kChannel);
  if (channel.element == nullptr) return SourceId{};
  const TiXmlElement* context = ContextOf(channel, parts);
  if (context == nullptr) return SourceId{};
  // A sub-channel that is not given is the first one; one that cannot be read is none.
  const bool unreadable =
      context->Attribute("Number") != nullptr && !IntAttribute(*context, "Number");
  if (unreadable) return SourceId{};
  return MakeKey(owner, NumberOf(*context), *channel.element);
}

SourceId AnalyticsKey(const TiXmlElement& event) {
  const Owner owner = FindOwner(event, "Analytics");
  if (owner.group == nullptr) return {};
  std::vector<Part> parts;
  ListParts(event, nullptr, owner, parts);
  Part input = FindNumbered(parts, kInput);
  if (input.element == nullptr) input = FindNumbered(parts, kVideoInput);
  if (input.element == nullptr) return {};
  return MakeKey(owner, 0, *input.element);
}

}  // namespace

SourceId EventSourceKey(const TiXmlElement& element) {
  const std::optional<SourceId> key = DevicesKey(element);
  return key ? *key : AnalyticsKey(element);
}

EventReference GroupMember(const TiXmlElement& entry) {
  if (const auto key = DevicesKey(entry)) return {*key, event_type::kVideoLoss};
  return {AnalyticsKey(entry), event_type::kAnalytic};
}

}  // namespace tvx
