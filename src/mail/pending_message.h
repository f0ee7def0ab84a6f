// One composed message: what its transfer, and every retry of it, needs to know.
// Threads: the worker's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "config/delivery_settings.h"
#include "config/smtp_server.h"

namespace tvx {

struct PendingMessage {
  std::string from;                     // validated
  std::vector<std::string> recipients;  // validated: to, then cc, then bcc
  std::string path;                     // the message file
  std::string profileDescription;
  std::int32_t profileId = 0;
  std::vector<SmtpServer> servers;  // as they were when the event came
  DeliverySettings delivery;        // likewise
  std::int64_t firstAttempt = 0;    // NotifyHelper::Now when the message was queued
  std::int64_t lastAttempt = 0;     // and at the latest attempt of the retry queue
  std::uint32_t size = 0;           // bytes
};

}  // namespace tvx
