#include "simulated_host/retry_tracker.h"

#include <algorithm>
#include <string_view>
#include <variant>

namespace tvx::tool {
namespace {

using What = RetryChange::What;

// A description can hold brackets, too, so it matters which ones are the file's.
enum class Which { InFirstBrackets, InLastBrackets, Oldest, Newest, All };

// How a line begins that tells of messages leaving the queue, and which they are.
struct Departure {
  std::string_view begin;
  Which which;
  What what;
  const char* why;  // null: it depends on how the last attempt failed
};
constexpr Departure kDepartures[] = {
    {"Retry for notification file (", Which::InFirstBrackets, What::Sent, ""},
    {"Retry timeout reached for notification file (", Which::InFirstBrackets, What::Discarded,
     nullptr},
    {"Maximum failed message queue limit of ", Which::Oldest, What::Discarded,
     "MaxRetryQueue messages wait already"},
    {"Minimum free space threshold exceeded. ", Which::InLastBrackets, What::Discarded,
     "the disk is nearly full"},
    // It was taken as queued when its transfer failed.
    {"Unable to free up space by removing items ", Which::Newest, What::Discarded,
     "the disk is nearly full"},
    {"Clearing retry notifications queue. ", Which::All, What::Discarded,
     "the configuration has changed"},
};
constexpr std::string_view kFailed = "Failed to send notification using profile ";
constexpr std::string_view kFailedForNow = ".  This message will be retried";
constexpr std::string_view kRetrying = "Retrying failed notification for file ";

bool BeginsWith(std::string_view text, std::string_view begin) {
  return text.substr(0, begin.size()) == begin;
}

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string InBrackets(const std::string& line, std::size_t open) {
  const std::size_t close = line.find(')', open);
  return close == std::string::npos ? std::string() : line.substr(open + 1, close - open - 1);
}

}  // namespace

std::string UploadedFile(const Launch& launch) {
  const auto& arguments = launch.arguments;
  const auto option = std::find(arguments.begin(), arguments.end(), "-T");
  return option == arguments.end() || option + 1 == arguments.end() ? std::string() : option[1];
}

std::vector<RetryChange> RetryTracker::Follow(double seconds, const HostEvent& event) {
  if (const auto* line = std::get_if<LogLine>(&event)) return Follow(seconds, line->text);
  if (const auto* launch = std::get_if<Launch>(&event)) {
    const std::string file = UploadedFile(*launch);
    if (!file.empty()) lastFile_ = file;
  } else if (std::holds_alternative<ModuleRegistration>(event)) {
    queue_.clear();  // a new life of the plug-in
  }
  return {};
}

std::vector<RetryChange> RetryTracker::Follow(double seconds, const std::string& line) {
  if (BeginsWith(line, kFailed)) {
    if (!EndsWith(line, kFailedForNow)) {
      final_ = true;
      return {};
    }
    queue_.push_back({lastFile_, seconds});
    return {{What::Queued, lastFile_, "", 1, 0, queue_.size()}};
  }
  if (BeginsWith(line, kRetrying)) {
    final_ = false;
    const auto message = Find(line.substr(kRetrying.size()));
    if (message == queue_.end()) return {};
    const int attempts = ++message->attempts;
    return {{What::Tried, message->file, "", attempts, seconds - message->since, queue_.size()}};
  }
  std::vector<RetryChange> changes;
  for (const auto& [begin, which, what, why] : kDepartures) {
    if (!BeginsWith(line, begin)) continue;
    const char* reason = why;
    if (reason == nullptr) {
      reason = final_ ? "no later attempt can succeed" : "it has waited for MaxRetrySeconds";
    }
    auto message = queue_.begin();
    if (which == Which::InFirstBrackets) message = Find(InBrackets(line, line.find('(')));
    if (which == Which::InLastBrackets) message = Find(InBrackets(line, line.rfind('(')));
    if (which == Which::Newest && !queue_.empty()) message = queue_.end() - 1;
    while (message != queue_.end()) {
      changes.push_back({what, message->file, reason, message->attempts, seconds - message->since,
                         queue_.size() - 1});
      queue_.erase(message);
      message = which == Which::All ? queue_.begin() : queue_.end();
    }
  }
  return changes;
}

RetryTracker::Position RetryTracker::Find(const std::string& file) {
  return std::find_if(queue_.begin(), queue_.end(),
                      [&](const Waiting& message) { return message.file == file; });
}

}  // namespace tvx::tool
