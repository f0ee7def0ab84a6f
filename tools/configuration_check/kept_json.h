// What the plug-in keeps of a configuration, as JSON: all but its passwords.
#pragma once

#include <nlohmann/json.hpp>

#include "config/notify_config.h"

namespace tvx {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(NotifyProfile, ID, attach, description, ThrottleSeconds, from,
                                   subject, MaxVideoSeconds, EventEdge, to, cc, bcc, body)

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(DeliverySettings, Standard, VerifyCertificates, CertificateFile,
                                   MaxTransferSeconds, HelloName)

inline void to_json(nlohmann::json& json, const SmtpServer& server) {
  json = {{"description", server.description},
          {"address", server.address},
          {"port", server.port},
          {"UseSSL", server.UseSSL},
          {"username", server.username},
          {"hasPassword", !server.password.empty()}};
}

}  // namespace tvx
