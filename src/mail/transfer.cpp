#include "mail/transfer.h"

#include <boost/algorithm/string/join.hpp>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <new>

#include "base/percent_encode.h"
#include "log/host_log.h"
#include "mail/address.h"

namespace tvx {
namespace {

// Exit codes of curl.
constexpr std::int32_t kNoSuchHost = 6;
constexpr std::int32_t kNoConnection = 7;
constexpr std::int32_t kUploadUnreadable = 26;
constexpr std::int32_t kTimeOut = 28;
constexpr std::int32_t kLoginRefused = 67;

// The last line of the program's output with standard delivery, as the program writes it and as it
// is read.
constexpr const char* kReplyLine = "SMTP reply %{response_code} after %{size_upload} bytes";
constexpr const char* kReplyPattern = "SMTP reply %d after %llu bytes";

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::min();

// What became of a message at one server.
enum class Verdict {
  Sent,
  Later,        // the server may take it later
  Never,        // asking this server again would not help
  Unreachable,  // as later, and no other message need try it now
  NotKnown,     // as later, but this may be its second time
  NotLaunched,
  Abandoned,  // the plug-in was stopped meanwhile
};

Verdict JudgeByExit(std::int32_t exitValue) {
  if (exitValue == 0) return Verdict::Sent;
  const bool isPermanent = exitValue == kLoginRefused || exitValue == kUploadUnreadable;
  return isPermanent ? Verdict::Never : Verdict::Later;
}

// The reply is the server's last, 0 without any, which it never has taken back.
Verdict JudgeByReply(std::int32_t exitValue, int reply, unsigned long long sent,
                     std::uint32_t size) {
  if (exitValue == 0 || exitValue == kUploadUnreadable) return JudgeByExit(exitValue);
  if (reply >= 500 && reply < 600) return Verdict::Never;
  if (reply >= 400 && reply < 500) return Verdict::Later;
  if (reply == 354 && sent >= size) return Verdict::NotKnown;
  const bool isUnreachable = exitValue == kNoSuchHost || exitValue == kNoConnection ||
                             (exitValue == kTimeOut && sent == 0);
  return isUnreachable ? Verdict::Unreachable : JudgeByExit(exitValue);
}

Verdict Judge(std::int32_t exitValue, const std::vector<std::string>& lines,
              const PendingMessage& message) {
  if (!message.delivery.Standard) return JudgeByExit(exitValue);
  int reply = 0;
  unsigned long long sent = 0;
  if (!lines.empty()) std::sscanf(lines.back().c_str(), kReplyPattern, &reply, &sent);
  return JudgeByReply(exitValue, reply, sent, message.size);
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

std::string Url(const PendingMessage& message, const SmtpServer& server) {
  const char* scheme = server.UseSSL == use_ssl::kSmtps ? "smtps://" : "smtp://";
  std::string url = scheme + PercentEncode(server.address) + ":" + std::to_string(server.port);
  const DeliverySettings& delivery = message.delivery;
  if (delivery.Standard || !delivery.HelloName.empty()) {
    // Without a path the program greets with the name of the message file.
    url += "/" + PercentEncode(HelloName(delivery.HelloName, message.from));
  }
  return url;
}

// Whether this round of retries has found it out already. Without one every message asks anew.
bool IsKnownUnreachable(std::int64_t foundAt, const NotifyHelper& helper) {
  return !helper.queue.empty() && foundAt >= helper.nextRetry;
}

void Tell(Verdict verdict, const SmtpServer& server, const char* profile,
          const NotifyHelper& helper) {
  if (verdict == Verdict::Never) {
    HostLog(kModuleId, helper.Host(), LogLevel::Warning,
            "Sending through server %s failed for good and is not tried again. (Profile "
            "Description: %s)",
            server.description.c_str(), profile);
  } else if (verdict == Verdict::NotKnown) {
    HostLog(kModuleId, helper.Host(), LogLevel::Warning,
            "The connection to server %s was lost after the whole message was sent. Nobody knows "
            "whether it arrived; it is sent again under the same identifier. (Profile "
            "Description: %s)",
            server.description.c_str(), profile);
  }
}

void TellOfNoLaunch(const SmtpServer& server, const char* profile, const NotifyHelper& helper) {
  HostLog(kModuleId, helper.Host(), LogLevel::Error,
          "Failed to execute curl smtp operation using server %s. (Profile Description: %s)",
          server.description.c_str(), profile);
}

// Sends the message through one server.
Verdict Try(const PendingMessage& message, const SmtpServer& server, NotifyHelper& helper) {
  const char* profile = message.profileDescription.c_str();
  std::int32_t exitValue = 0;
  std::vector<std::string> lines;
  bool executed = false;
  std::int64_t* unreachable = nullptr;
  try {
    const std::vector<std::string> arguments = BuildCurlArguments(message, server);
    unreachable = &helper.unreachable.try_emplace(arguments.back(), kNever).first->second;
    if (IsKnownUnreachable(*unreachable, helper)) {
      HostLog(kModuleId, helper.Host(), LogLevel::Information,
              "Server %s could not be reached and is not asked again in this round. (Profile "
              "Description: %s)",
              server.description.c_str(), profile);
      return Verdict::Unreachable;
    }
    executed =
        helper.RunTransfer(arguments, BuildCurlInput(message.delivery, server), exitValue, lines);
  } catch (const std::bad_alloc&) {
    // Nothing was launched, and there may be memory later.
    TellOfNoLaunch(server, profile, helper);
    return Verdict::Later;
  }
  if (!executed && helper.WasAbandoned()) {
    HostLog(kModuleId, helper.Host(), LogLevel::Warning,
            "The host stopped while a message was being sent using server %s. Nobody knows "
            "whether it arrived. (Profile Description: %s)",
            server.description.c_str(), profile);
    return Verdict::Abandoned;
  }
  if (!executed) {
    TellOfNoLaunch(server, profile, helper);
    return Verdict::NotLaunched;
  }
  HostLog(kModuleId, helper.Host(), exitValue != 0 ? LogLevel::Warning : LogLevel::Information,
          "Profile Description: %s. Notification attempt return code= %d", profile, exitValue);
  const Verdict verdict = Judge(exitValue, lines, message);
  if (verdict != Verdict::Sent) {
    for (const std::string& line : lines) {
      HostLog(kModuleId, helper.Host(), LogLevel::Information, "%s", line.c_str());
    }
  }
  if (verdict == Verdict::Unreachable) *unreachable = helper.Now();
  if (message.delivery.Standard) Tell(verdict, server, profile, helper);
  return verdict;
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
  if (!message.delivery.VerifyCertificates) arguments.emplace_back("--insecure");
  arguments.insert(arguments.end(), {"--connect-timeout", "60", "--config", "-", "-T"});
  arguments.push_back(message.path);
  arguments.push_back(Url(message, server));
  return arguments;
}

std::string BuildCurlInput(const DeliverySettings& delivery, const SmtpServer& server) {
  std::vector<std::string> options;
  if (delivery.Standard) {
    options = {"silent", "show-error", "stderr = \"-\"",
               std::string("write-out = \"") + kReplyLine + "\\n\""};
  }
  if (delivery.MaxTransferSeconds > 0) {
    options.push_back("max-time = " + std::to_string(delivery.MaxTransferSeconds));
  }
  if (delivery.VerifyCertificates && !delivery.CertificateFile.empty()) {
    options.push_back("cacert = " + QuoteCurlValue(delivery.CertificateFile));
  }
  if (!server.username.empty()) {
    options.push_back("user = " + QuoteCurlValue(server.username + ":" + server.password));
  }
  return boost::algorithm::join(options, "\n");
}

SendResult SendMessage(PendingMessage& message, NotifyHelper& helper) {
  const char* profile = message.profileDescription.c_str();
  bool retryable = false;
  for (auto server = message.servers.begin(); server != message.servers.end();) {
    const Verdict verdict = Try(message, *server, helper);
    if (verdict == Verdict::Sent) return SendResult::Sent;
    if (verdict == Verdict::Abandoned) return SendResult::Unknown;
    if (verdict != Verdict::Never && verdict != Verdict::NotLaunched) retryable = true;
    const bool isOver = verdict == Verdict::Never && message.delivery.Standard;
    server = isOver ? message.servers.erase(server) : server + 1;
  }
  if (retryable) return SendResult::Retry;
  if (message.delivery.Standard) {
    HostLog(kModuleId, helper.Host(), LogLevel::Error,
            "Failed to send notification using profile %s.  This message will NOT be retried, as "
            "no server is left that may take it",
            profile);
    return SendResult::GiveUp;
  }
  HostLog(kModuleId, helper.Host(), LogLevel::Error,
          "Failed to send notification using profile %s.  This message will NOT be retried due to "
          "failure return codes 67 or 26 or due to failures to prepare or initiate email operation",
          profile);
  return SendResult::GiveUp;
}

}  // namespace tvx
