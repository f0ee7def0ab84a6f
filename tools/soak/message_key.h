// The identity of one notification on its whole way: a profile, and the number of the event.
//
// Events are a second apart for the plug-in, however fast they come, so that their number shows in
// the names of message files and in subjects.
// Threads: any; plain values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

namespace tvx::soak {

// The time of the event numbered 0, in seconds since 1970.
constexpr std::int32_t kFirstEventTime = 1'500'000'000;

struct MessageKey {
  std::int32_t profile = 0;
  std::int32_t event = 0;

  bool operator<(const MessageKey& other) const {
    return std::tie(event, profile) < std::tie(other.event, other.profile);
  }
};

// From the name of a message file, "notify-mail-PROFILE-SECONDS-...", with or without its folder.
// Nothing when it is not such a name.
std::optional<MessageKey> KeyOfMessageFile(const std::string& path);

// The subject that a message has, in UTC, with the profile's subject template below: "PROFILE DATE".
std::string SubjectOf(const MessageKey& key);
constexpr const char* kSubjectDate = "{date format=\"%Y%m%d%H%M%S\"}";

}  // namespace tvx::soak
