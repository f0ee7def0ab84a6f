#include "preview/sample_event.h"

#include <strings.h>

#include <charconv>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>

#include "config/event_reference.h"
#include "config/source_id.h"
#include "service/event_document.h"
#include "service/notification_builder.h"
#include "service/notification_text.h"
#include "service/service_state.h"
#include "web/web_server_address.h"

namespace tvx::tool {
namespace {

constexpr std::uint32_t kSampleCamera = 0x10201;

std::vector<std::uint32_t> CamerasOf(const SampleEvent& event) {
  if (event.isTest) return {};
  if (event.cameras) return *event.cameras;
  if (IsVideoEvent(event.type)) return {kSampleCamera};
  return {};
}

std::optional<std::int32_t> ReadNumber(const std::string& text) {
  std::int32_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stopped != end) return std::nullopt;
  return number;
}

}  // namespace

std::shared_ptr<NotifyWorkItem> MakeNotification(const SampleEvent& event,
                                                 const std::shared_ptr<const NotifyConfig>& config,
                                                 const NotifyProfile& profile) {
  const std::vector<std::uint32_t> cameras = CamerasOf(event);
  ProfileEvent reported;
  reported.isStart = event.isStart;
  reported.profileId = profile.ID;
  reported.isTest = event.isTest;
  reported.time = event.seconds;
  reported.milliseconds = event.milliseconds;
  reported.sources.push_back({SourceId{kSampleCamera}, event.type});

  ServiceState state(nullptr);
  state.config = config;
  state.system = std::make_shared<const SystemFacts>(SystemFacts{
      ShortFact(event.serial), ShortFact(event.systemName), ShortFact(event.macAddress)});

  std::shared_ptr<NotifyWorkItem> item = BuildNotification(reported, profile, state);
  // There is no directory of devices to find the name in.
  if (!event.isTest) item->facts.sourceName = ShortFact(event.sourceName);
  for (const std::uint32_t camera : cameras) item->cameras.push_back(SourceId{camera});
  return item;
}

std::string SampleWebLink(const SampleEvent& event, const NotifyWorkItem& item) {
  if (event.webLink) return *event.webLink;
  return WebLinkFor(item, nullptr, [&](const WebServerAddress&, const std::string&) {
    const nlohmann::json answer = {
        {"list", nlohmann::json::array({{{"serial", item.system->serial}, {"id", "1"}}})}};
    return answer.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  });
}

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
    if (::strcasecmp(EventTypeName(code), text.c_str()) == 0) return code;
  }
  return std::nullopt;
}

}  // namespace tvx::tool
