#include "preview/sample_event.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "config/event_reference.h"
#include "config/source_id.h"
#include "service/event_document.h"
#include "service/notification_builder.h"
#include "service/service_state.h"
#include "service/web_link_step.h"
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
  state.serial = event.serial;
  state.description = event.systemName;
  state.macAddress = event.macAddress;

  std::shared_ptr<NotifyWorkItem> item = BuildNotification(reported, profile, state);
  // There is no directory of devices to find the name in.
  if (!event.isTest) item->facts.sourceName = event.sourceName;
  for (const std::uint32_t camera : cameras) item->cameras.push_back(SourceId{camera});
  return item;
}

std::string SampleWebLink(const SampleEvent& event, const NotifyWorkItem& item) {
  if (event.webLink) return *event.webLink;
  return WebLinkFor(item, nullptr, [&](const WebServerAddress&, const std::string&) {
    const nlohmann::json answer = {
        {"list", nlohmann::json::array({{{"serial", item.facts.serial}, {"id", "1"}}})}};
    return answer.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  });
}

}  // namespace tvx::tool
