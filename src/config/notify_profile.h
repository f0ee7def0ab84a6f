// One notification profile: who is told of an event, how and with what.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tvx {

// When a profile notifies.
namespace event_edge {
constexpr std::int32_t kStart = 0;
constexpr std::int32_t kEnd = 1;
constexpr std::int32_t kBoth = 2;
}  // namespace event_edge

struct NotifyProfile {
  std::int32_t ID = 0;
  bool attach = false;
  std::string description;
  std::int32_t ThrottleSeconds = 0;
  std::int32_t MaxVideoSeconds = 0;
  std::string from;
  std::string subject;  // a template
  std::vector<std::string> to;
  std::vector<std::string> cc;
  std::vector<std::string> bcc;
  std::string body;  // a template
  std::int32_t EventEdge = event_edge::kStart;
  bool usesPlaceholders = false;  // computed from subject and body
};

}  // namespace tvx
