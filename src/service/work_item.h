// One unit of the worker's work: a notification, with everything that its e-mail needs, or stop.
//
// Held by shared pointer: the waiting list, the queue and the worker may have it at once. Filled by
// the event intake; once it is queued only the worker touches it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "config/event_reference.h"
#include "config/notify_profile.h"
#include "config/smtp_server.h"
#include "config/templates.h"
#include "mail/composition.h"
#include "video/attachment_source.h"

namespace tvx {

struct NotifyWorkItem {
  enum class Kind : std::uint32_t { Stop = 0, Notification = 1 };

  Kind kind = Kind::Notification;

  // From the profile, as it was when the event came.
  bool attachVideo = false;
  bool usesPlaceholders = false;
  std::string profileDescription;
  std::int32_t maxDurationSeconds = 0;
  std::int32_t eventEdge = event_edge::kStart;
  MessageContent content;  // subject and body are still templates

  // From the configuration.
  std::int32_t preTriggerSeconds = 0;
  std::uint32_t bufferSize = 10485760;  // bytes that one message's attachments may have; 0 = any
  std::vector<SmtpServer> servers;
  std::string webAddress;

  // From the event.
  SourceId source;
  bool isStart = false;
  std::int32_t eventMilliseconds = 0;
  TemplateFacts facts;
  std::vector<SourceId> cameras;  // its video inputs, whether or not their video is attached
  std::vector<AttachmentSource> videos;

  static constexpr std::uint32_t kNoSource = 0xFFFFFFFF;  // source of a test message
};

// Whether any clip of the item still takes frames.
bool HasOpenClip(const NotifyWorkItem& item);

}  // namespace tvx
