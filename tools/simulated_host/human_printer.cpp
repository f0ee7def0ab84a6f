#include "simulated_host/human_printer.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>
#include <variant>

#include "text/printable.h"

namespace tvx::tool {
namespace {

// An argument as a shell would take it.
std::string ShellWord(const std::string& argument) {
  constexpr const char* kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./:@=+,%";
  if (!argument.empty() && argument.find_first_not_of(kPlain) == std::string::npos) return argument;
  std::string quoted = "'";
  for (const char c : Printable(argument)) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

std::string Seconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.3f s", seconds);
  return text;
}

std::string Outcome(int waitStatus) {
  if (WIFSIGNALED(waitStatus)) {
    return "killed by signal " + std::to_string(WTERMSIG(waitStatus)) + " (" +
           strsignal(WTERMSIG(waitStatus)) + ")";
  }
  return "exit " + std::to_string(WEXITSTATUS(waitStatus));
}

std::string Level(std::uint32_t level) {
  switch (level) {
    case 25:
      return "info";
    case 50:
      return "warning";
    case 75:
      return "error";
    default:
      return "level " + std::to_string(level);
  }
}

std::string StatusInWords(std::int32_t status) {
  switch (status) {
    case kStatusUnknown:
      return "not known yet";
    case kStatusDelivered:
      return "delivered";
    case 1:
      return "failed";
    default:
      return "status " + std::to_string(status);
  }
}

std::string Count(std::size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

using Line = HumanLine;

Line Describe(const HostAction& action) {
  return {"host", Printable(action.text)};
}
Line Describe(const MailServerChange& change) {
  return {"host", InWords(change.what)};
}
Line Describe(const LogLine& line) {
  return {Level(line.level), Printable(line.text)};
}
Line Describe(const WatchdogEvent&) {
  return {"watchdog", "alive"};
}
Line Describe(const Fault& fault) {
  return {"FAULT", Printable(fault.text)};
}

Line Describe(const Launch& launch) {
  std::string command;
  for (const std::string& argument : launch.arguments) {
    command += (command.empty() ? "" : " ") + ShellWord(argument);
  }
  return {"launch", command};
}

Line Describe(const LaunchFailure& failure) {
  return {"ended", Printable(failure.program) +
                       " could not be started: " + std::generic_category().message(failure.error)};
}

Line Describe(const ProgramEnd& end) {
  return {"ended", Printable(end.program) + ": " + Outcome(end.waitStatus) + " after " +
                       Seconds(end.seconds)};
}

Line Describe(const ProfileStatus& status) {
  return {"status",
          "profile " + std::to_string(status.profile) + ": " + StatusInWords(status.status)};
}

Line Describe(const Configuration& configuration) {
  std::string text = Count(static_cast<std::size_t>(configuration.servers), "server") + ", " +
                     Count(configuration.profiles.size(), "profile");
  const char* separator = ": ";
  for (const auto& [id, description] : configuration.profiles) {
    text += separator + std::to_string(id) + " \"" + Printable(description) + "\"";
    separator = ", ";
  }
  return {"config", text + (configuration.smtps ? "; TLS offered" : "; TLS not offered")};
}

Line Describe(const RetryChange& change) {
  using What = RetryChange::What;
  const std::string file = Printable(change.file);
  const std::string waiting = "; " + Count(change.waiting, "message") + " waiting";
  char age[64];
  std::snprintf(age, sizeof(age), "%.0f s after it was queued", change.age);
  switch (change.what) {
    case What::Queued:
      return {"retry", "queued " + file + waiting};
    case What::Tried:
      return {"retry", "attempt " + std::to_string(change.attempts) + " of " + file + ", " + age};
    case What::Sent:
      return {"retry", "sent " + file + ", " + age + waiting};
    case What::Discarded:
      return {"retry", "discarded " + file + ", " + age + ": " + change.why + waiting};
  }
  return {"retry", file};
}

Line Describe(const FeedStart& feed) {
  return {"frames", "stream " + std::to_string(feed.stream) + ": " + Printable(feed.source)};
}

Line Describe(const FeedEnd& feed) {
  return {"frames", "stream " + std::to_string(feed.stream) +
                        " ends: " + Count(static_cast<std::size_t>(feed.frames), "frame") + " in " +
                        Seconds(feed.seconds) + ", at most " + Seconds(feed.late) + " late"};
}

Line Describe(const FrameAccount& account) {
  return {"frames", "stream " + std::to_string(account.stream) + ": " +
                        std::to_string(account.offered) + " offered, " +
                        std::to_string(account.taken) + " taken, " +
                        std::to_string(account.givenBack) + " given back"};
}

Line Describe(const ModuleRegistration& module) {
  return {"module", Printable(module.name) + " version " + Printable(module.version)};
}

}  // namespace

HumanLine DescribeForPeople(const Happening& happening) {
  return std::visit([](const auto& it) { return Describe(it); }, happening);
}

void HumanPrinter::Print(double seconds, const Happening& happening) {
  const HumanLine line = DescribeForPeople(happening);
  std::fprintf(out_, "%9.3f  %-8s  %s\n", seconds, line.label.c_str(), line.text.c_str());
  std::fflush(out_);
}

}  // namespace tvx::tool
