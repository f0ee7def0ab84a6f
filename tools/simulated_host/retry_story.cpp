#include "simulated_host/retry_story.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace tvx::tool {
namespace {

bool StartsWith(const std::string& text, const char* start) {
  return text.rfind(start, 0) == 0;
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string InBrackets(const std::string& line, std::size_t open) {
  if (open == std::string::npos) return {};
  const std::size_t close = line.find(')', open);
  return close == std::string::npos ? std::string() : line.substr(open + 1, close - open - 1);
}

// A description can hold brackets, too, so it matters which ones are the file's.
std::string FirstInBrackets(const std::string& line) {
  return InBrackets(line, line.find('('));
}
std::string LastInBrackets(const std::string& line) {
  return InBrackets(line, line.rfind('('));
}

}  // namespace

std::string UploadedFile(const Launch& launch) {
  const auto& arguments = launch.arguments;
  const auto option = std::find(arguments.begin(), arguments.end(), "-T");
  return option == arguments.end() || option + 1 == arguments.end() ? std::string() : option[1];
}

RetryStory::RetryStory(std::unique_ptr<TimelinePrinter> printer) : printer_(std::move(printer)) {}

void RetryStory::Print(double seconds, const Happening& happening) {
  printer_->Print(seconds, happening);
  if (const auto* line = std::get_if<LogLine>(&happening)) {
    Follow(seconds, line->text);
  } else if (const auto* launch = std::get_if<Launch>(&happening)) {
    const std::string file = UploadedFile(*launch);
    if (!file.empty()) lastFile_ = file;
  } else if (std::holds_alternative<ModuleRegistration>(happening)) {
    queue_.clear();  // a new life of the plug-in
  }
}

void RetryStory::Follow(double seconds, const std::string& line) {
  using What = RetryChange::What;
  constexpr const char* kRetrying = "Retrying failed notification for file ";
  if (StartsWith(line, "Failed to send notification using profile ")) {
    if (EndsWith(line, ".  This message will be retried")) return Queue(seconds);
    final_ = true;
  } else if (StartsWith(line, kRetrying)) {
    Try(seconds, line.substr(std::string(kRetrying).size()));
  } else if (StartsWith(line, "Retry for notification file (")) {
    Leave(seconds, Find(FirstInBrackets(line)), What::Sent, "");
  } else if (StartsWith(line, "Retry timeout reached for notification file (")) {
    Leave(seconds, Find(FirstInBrackets(line)), What::Discarded,
          final_ ? "no later attempt can succeed" : "it has waited for MaxRetrySeconds");
  } else if (StartsWith(line, "Maximum failed message queue limit of ")) {
    Leave(seconds, queue_.begin(), What::Discarded, "MaxRetryQueue messages wait already");
  } else if (StartsWith(line, "Minimum free space threshold exceeded. ")) {
    Leave(seconds, Find(LastInBrackets(line)), What::Discarded, "the disk is nearly full");
  } else if (StartsWith(line, "Unable to free up space by removing items ")) {
    // The newest: it was taken as queued when its transfer failed.
    Leave(seconds, queue_.empty() ? queue_.end() : queue_.end() - 1, What::Discarded,
          "the disk is nearly full");
  } else if (StartsWith(line, "Clearing retry notifications queue. ")) {
    while (!queue_.empty()) {
      Leave(seconds, queue_.begin(), What::Discarded, "the configuration has changed");
    }
  }
}

void RetryStory::Queue(double seconds) {
  queue_.push_back({lastFile_, seconds});
  Tell(seconds, {RetryChange::What::Queued, lastFile_, "", 1, 0, 0});
}

void RetryStory::Try(double seconds, const std::string& file) {
  final_ = false;
  const Position message = Find(file);
  if (message == queue_.end()) return;
  ++message->attempts;
  Tell(seconds,
       {RetryChange::What::Tried, file, "", message->attempts, seconds - message->since, 0});
}

void RetryStory::Leave(double seconds, const Position& message, RetryChange::What what,
                       const char* why) {
  if (message == queue_.end()) return;
  RetryChange change{what, message->file, why, message->attempts, seconds - message->since, 0};
  queue_.erase(message);
  Tell(seconds, std::move(change));
}

RetryStory::Position RetryStory::Find(const std::string& file) {
  return std::find_if(queue_.begin(), queue_.end(),
                      [&](const Waiting& message) { return message.file == file; });
}

void RetryStory::Tell(double seconds, RetryChange change) {
  change.waiting = queue_.size();
  printer_->Print(seconds, change);
}

}  // namespace tvx::tool
