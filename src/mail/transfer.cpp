#include "mail/transfer.h"

#include <new>

#include "base/percent_encode.h"
#include "log/host_log.h"

namespace tvx {
namespace {

// Exit codes of curl after which no later attempt can succeed.
constexpr std::int32_t kLoginRefused = 67;
constexpr std::int32_t kUploadUnreadable = 26;

bool IsPermanent(std::int32_t exitValue) {
  return exitValue == kLoginRefused || exitValue == kUploadUnreadable;
}

// A value as the program's configuration syntax quotes it. Line breaks are escaped as well: a bare
// one would end the option and begin another.
std::string QuoteCurlValue(const std::string& value) {
  std::string quoted = "\"";
  for (const char c : value) {
    switch (c) {
      case '"':
      case '\\':
        quoted.push_back('\\');
        quoted.push_back(c);
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\r':
        quoted += "\\r";
        break;
      default:
        quoted.push_back(c);
    }
  }
  quoted.push_back('"');
  return quoted;
}

}  // namespace

std::vector<std::string> BuildCurlArguments(const PendingMessage& message,
                                            const SmtpServer& server) {
  std::vector<std::string> arguments = {"./curl", "--mail-from", message.from};
  for (const std::string& recipient : message.recipients) {
    arguments.emplace_back("--mail-rcpt");
    arguments.push_back(recipient);
  }
  if (server.UseSSL == use_ssl::kStartTls) arguments.emplace_back("--ssl-reqd");
  arguments.insert(arguments.end(),
                   {"--insecure", "--connect-timeout", "60", "--config", "-", "-T", message.path});
  const char* scheme = server.UseSSL == use_ssl::kSmtps ? "smtps://" : "smtp://";
  arguments.push_back(scheme + PercentEncode(server.address) + ":" + std::to_string(server.port));
  return arguments;
}

std::string BuildCurlInput(const SmtpServer& server) {
  if (server.username.empty()) return {};
  return "user = " + QuoteCurlValue(server.username + ":" + server.password);
}

SendResult SendMessage(const PendingMessage& message, const std::vector<SmtpServer>& servers,
                       NotifyHelper& helper) {
  const char* profile = message.profileDescription.c_str();
  bool retryable = false;
  for (const SmtpServer& server : servers) {
    std::int32_t exitValue = 0;
    std::vector<std::string> lines;
    bool executed = false;
    try {
      executed = helper.RunTransfer(BuildCurlArguments(message, server), BuildCurlInput(server),
                                    exitValue, lines);
    } catch (const std::bad_alloc&) {
      retryable = true;  // nothing was launched, and there may be memory later
    }
    if (!executed && helper.WasAbandoned()) {
      HostLog(kModuleId, helper.Host(), LogLevel::Warning,
              "The host stopped while a message was being sent using server %s. Nobody knows "
              "whether it arrived. (Profile Description: %s)",
              server.description.c_str(), profile);
      return SendResult::Unknown;
    }
    if (!executed) {
      HostLog(kModuleId, helper.Host(), LogLevel::Error,
              "Failed to execute curl smtp operation using server %s. (Profile Description: %s)",
              server.description.c_str(), profile);
      continue;
    }
    HostLog(kModuleId, helper.Host(), exitValue != 0 ? LogLevel::Warning : LogLevel::Information,
            "Profile Description: %s. Notification attempt return code= %d", profile, exitValue);
    if (exitValue == 0) return SendResult::Sent;
    for (const std::string& line : lines) {
      HostLog(kModuleId, helper.Host(), LogLevel::Information, "%s", line.c_str());
    }
    if (!IsPermanent(exitValue)) retryable = true;
  }
  if (retryable) return SendResult::Retry;
  HostLog(kModuleId, helper.Host(), LogLevel::Error,
          "Failed to send notification using profile %s.  This message will NOT be retried due to "
          "failure return codes 67 or 26 or due to failures to prepare or initiate email operation",
          profile);
  return SendResult::GiveUp;
}

}  // namespace tvx
