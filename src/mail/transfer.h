// Sends a message by having the host run "./curl", once for each server until one accepts it.
//
// Standards: the message goes out by SMTP (RFC 5321), over TLS or STARTTLS (RFC 3207) as the server
//            is configured. By default certificates are not verified: an alarm must not be lost to
//            an expired one.
// Threads:   the worker's. Blocks until the program ends; by default only connecting is bounded
//            (60 s).
#pragma once

#include <string>
#include <vector>

#include "config/delivery_settings.h"
#include "config/smtp_server.h"
#include "mail/notify_helper.h"
#include "mail/pending_message.h"

namespace tvx {

enum class SendResult {
  Sent = 0,
  Retry = 1,    // at least one server may accept it later
  GiveUp = 2,   // trying again would not help
  Unknown = 3,  // the plug-in was stopped meanwhile, and a second try might be a second delivery
};

// Tries the message's servers in order. Logs every attempt, and the program's output when it failed.
//
// By default the program's exit code alone tells whether a later try is worth it. With standard
// delivery the server's reply does: one that refused for good (5yz) is taken off the message's
// list, and one that could not be reached is not asked again in the same round of retries.
SendResult SendMessage(PendingMessage& message, NotifyHelper& helper);

// The command line for one server. Credentials are never on it.
std::vector<std::string> BuildCurlArguments(const PendingMessage& message,
                                            const SmtpServer& server);

// What the program reads as configuration from its standard input: by default the credentials, or
// nothing without a user name. Values are quoted, so that none can be more than a value.
std::string BuildCurlInput(const DeliverySettings& delivery, const SmtpServer& server);

}  // namespace tvx
