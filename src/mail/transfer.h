// Sends a message by having the host run "./curl", once for each server until one accepts it.
//
// Standards: the message goes out by SMTP (RFC 5321), over TLS or STARTTLS (RFC 3207) as the server
//            is configured. Certificates are not verified: an alarm must not be lost to an expired
//            one.
// Threads:   the worker's. Blocks until the program ends; only connecting is bounded (60 s).
#pragma once

#include <string>
#include <vector>

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

// Tries the servers in order. Logs every attempt, and the program's output when it failed.
SendResult SendMessage(const PendingMessage& message, const std::vector<SmtpServer>& servers,
                       NotifyHelper& helper);

// The command line for one server. Credentials are never on it.
std::vector<std::string> BuildCurlArguments(const PendingMessage& message,
                                            const SmtpServer& server);

// What the program reads as configuration from its standard input: the credentials, or nothing
// without a user name.
std::string BuildCurlInput(const SmtpServer& server);

}  // namespace tvx
