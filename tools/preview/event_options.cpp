#include "preview/event_options.h"

#include <strings.h>

#include <charconv>
#include <ctime>

#include "config/event_types.h"

namespace tvx::tool {
namespace {

std::optional<std::int32_t> ReadNumber(const std::string& text) {
  std::int32_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stopped != end) return std::nullopt;
  return number;
}

}  // namespace

std::optional<std::int32_t> ReadEventTime(const std::string& text) {
  if (const auto seconds = ReadNumber(text)) return seconds;
  std::tm local{};
  local.tm_isdst = -1;
  const char* end = ::strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &local);
  if (end == nullptr || *end != '\0') return std::nullopt;
  const std::tm asked = local;
  local.tm_wday = -1;
  const std::time_t seconds = std::mktime(&local);
  if (local.tm_wday == -1) return std::nullopt;  // -1 seconds alone may be a time
  // February 30 is moved into March, and so on: somebody has mistyped.
  if (local.tm_mday != asked.tm_mday || local.tm_mon != asked.tm_mon) return std::nullopt;
  // A 64-bit build knows more times than an event document can carry.
  if (static_cast<std::int32_t>(seconds) != seconds) return std::nullopt;
  return static_cast<std::int32_t>(seconds);
}

std::optional<std::int32_t> ReadEventType(const std::string& text) {
  if (const auto code = ReadNumber(text)) return code;
  for (std::int32_t code = event_type::kInvalid; code <= event_type::kRecordAlarm; ++code) {
    if (::strcasecmp(EventTypeName(code).c_str(), text.c_str()) == 0) return code;
  }
  return std::nullopt;
}

}  // namespace tvx::tool
