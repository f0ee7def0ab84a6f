#include "soak/message_key.h"

#include <cstdio>
#include <ctime>

namespace tvx::soak {

std::optional<MessageKey> KeyOfMessageFile(const std::string& path) {
  const std::size_t name = path.find("notify-mail-");
  if (name == std::string::npos) return std::nullopt;
  int profile = 0;
  int seconds = 0;
  if (std::sscanf(path.c_str() + name, "notify-mail-%d-%d-", &profile, &seconds) != 2) {
    return std::nullopt;
  }
  return MessageKey{profile, seconds - kFirstEventTime};
}

std::string SubjectOf(const MessageKey& key) {
  const std::time_t time = std::time_t{kFirstEventTime} + key.event;
  std::tm utc{};
  gmtime_r(&time, &utc);
  char text[32];
  std::strftime(text, sizeof(text), "%Y%m%d%H%M%S", &utc);
  return std::to_string(key.profile) + " " + text;
}

}  // namespace tvx::soak
