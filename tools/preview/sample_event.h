// The event that a preview is made for, and the notification that the plug-in makes of it.
// Threads: plain values, their owner's.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/event_types.h"
#include "config/notify_config.h"
#include "service/work_item.h"

namespace tvx::tool {

struct SampleEvent {
  std::int32_t seconds = 0;  // since 1970
  std::int32_t milliseconds = 0;
  std::int32_t type = event_type::kVideoMotion;
  bool isStart = true;  // else the event ended
  bool isTest = false;  // a test event, whose type, source and cameras do not matter
  std::string sourceName = "Camera 1";
  std::string systemName = "Recorder";
  std::string serial = "A-1001";
  std::string macAddress = "00:00:5E:00:53:01";
  // Identifiers of the video inputs that the event concerns; unset: one for an event of a camera,
  // none for others.
  std::optional<std::vector<std::uint32_t>> cameras;
  // What "{weblink}" becomes; unset: what the plug-in puts there, see SampleWebLink.
  std::optional<std::string> webLink;
};

// The notification for a profile of this configuration, as the event intake hands it on.
std::shared_ptr<NotifyWorkItem> MakeNotification(const SampleEvent& event,
                                                 const std::shared_ptr<const NotifyConfig>& config,
                                                 const NotifyProfile& profile);

// The plug-in's link or notice. The web server is not asked: it is taken to know the system's
// serial number, under the id "1", and to use the older form of links.
std::string SampleWebLink(const SampleEvent& event, const NotifyWorkItem& item);

// Seconds since 1970, from those or from "YYYY-MM-DD HH:MM:SS" of the local time; nothing when it
// is neither, or beyond what an event document can carry (32 bits).
std::optional<std::int32_t> ReadEventTime(const std::string& text);

// The code of an event type, from it or from its display name in upper or lower case; nothing when
// there is no such name.
std::optional<std::int32_t> ReadEventType(const std::string& text);

}  // namespace tvx::tool
