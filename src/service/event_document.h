// Reads the host's event documents into plain values, so that no lock is held while XML is read.
//
// Threads: any. Errors: entries without "Alarm" are left out, whatever else is malformed becomes 0
//          or empty; the intake decides what to do without it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config/event_reference.h"

class TiXmlElement;

namespace tvx {

// One entry of "Profiles": an event that may concern one profile.
struct ProfileEvent {
  bool isStart = false;  // else the event ended
  std::int32_t profileId = 0;
  std::optional<std::int32_t> action;
  bool isTest = false;    // a test message
  std::int32_t time = 0;  // seconds since 1970; of the reading when the document does not say
  std::int32_t milliseconds = 0;
  bool fromGroup = false;               // sources holds the one source group
  std::vector<EventReference> sources;  // the single sources, in document order; may be empty

  // The source that the event goes by: the group, or the first single source.
  EventReference Source() const { return sources.empty() ? EventReference{} : sources.front(); }
};

// What an entry's "Message" says when it asks for a test message; the mail begins with it.
constexpr const char* kTestMessage = "Testing Profile";

struct EventDocument {
  // Of the first server, when the document says so.
  std::optional<std::string> serial;
  std::optional<std::string> description;
  std::optional<std::string> macAddress;
  // Of the "Notify" elements that are addressed to this module, in document order.
  std::vector<ProfileEvent> events;
};

EventDocument ReadEventDocument(const TiXmlElement& root);

}  // namespace tvx
