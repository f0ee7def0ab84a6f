// The notification configuration: delivery settings, mail servers, profiles.
//
// A plain value. The service never changes one that others see: a change makes a new one, which
// intake, notifications and worker share.
// Threads: any may read one that is shared.
// Not here: its XML form (notify_reader.h, notify_writer.h) and its file (config_file.h).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "config/delivery_settings.h"
#include "config/notify_profile.h"
#include "config/smtp_server.h"

namespace tvx {

struct NotifyConfig {
  std::int32_t nextProfileId = 1;   // "autoincrement"
  bool secondReviewerMode = false;  // while set, no profile may attach anything
  bool curlSupportsSmtps = false;   // found out at start-up
  std::vector<SmtpServer> servers;  // in the order in which they are tried
  std::map<std::int32_t, NotifyProfile> profiles;
  std::string webAddress;  // of the host's web client
  std::int32_t MaxRetrySeconds = 172800;
  std::int32_t MaxRetryQueue = 100;
  std::int32_t EmailSizeLimitMB = 10;
  DeliverySettings delivery;
  bool loaded = false;  // a "Notify" block has been read successfully
  // Event action identifier to its pre-trigger seconds. Entries are only ever added or replaced.
  std::map<std::int32_t, std::int32_t> preAlarms;
};

// Megabytes as bytes. A number that is negative or does not fit counts as the largest that does;
// 0 stays 0, which means no video.
std::uint32_t MegabytesToBytes(std::int32_t megabytes);

// Clears every profile's attach flag; true when any was set.
bool ClearAttachFlags(NotifyConfig& config);

}  // namespace tvx
