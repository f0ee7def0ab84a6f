// One unit of the worker's work: a notification, with everything that its e-mail needs, or stop.
//
// Held by shared pointer: the waiting list, the queue and the worker may have it at once. Filled by
// the event intake; once it is queued only the worker touches it.
// Threads: the intake's under its mutex until it is queued, the worker's from then on.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/input_limits.h"
#include "base/utf8.h"
#include "config/event_reference.h"
#include "config/notify_config.h"
#include "config/templates.h"
#include "video/attachment_source.h"

namespace tvx {

// A name or number of the host's, as long as an item may hold it.
inline std::string ShortFact(const std::string& text) {
  return text.substr(0, Utf8Prefix(text, kMaxFactBytes));
}

// What event documents say of the host system. Short facts, all of them.
struct SystemFacts {
  std::string serial;
  std::string description;
  std::string macAddress;
};

struct NotifyWorkItem {
  enum class Kind : std::uint32_t { Stop = 0, Notification = 1 };

  Kind kind = Kind::Notification;

  // As they were when the event came. Shared, not copied: a configuration never changes.
  std::shared_ptr<const NotifyConfig> config;
  const NotifyProfile* profile = nullptr;  // in config

  bool attachVideo = false;
  std::int32_t preTriggerSeconds = 0;

  // From the event.
  bool isTest = false;  // a test message
  bool isStart = false;
  SourceId source;
  std::int32_t eventSeconds = 0;  // since 1970
  std::int32_t eventMilliseconds = 0;
  TemplateFacts facts;  // but for those of the system
  std::shared_ptr<const SystemFacts> system;
  std::vector<SourceId> cameras;  // its video inputs, whether or not their video is attached
  std::vector<AttachmentSource> videos;

  static constexpr std::uint32_t kNoSource = 0xFFFFFFFF;  // source of a test message
};

}  // namespace tvx
