#include "soak/ledger.h"

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace tvx::soak {
namespace {

// Of the plug-in's clock, which counts milliseconds, and of the two readings around it.
constexpr double kClockSlack = 0.005;

constexpr std::size_t kFaultsKept = 20;

bool BeginsWith(const std::string& text, const char* beginning) {
  return text.rfind(beginning, 0) == 0;
}

bool Contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

// The profiles' descriptions are "P" and the identifier. 0 when there is none behind the position.
std::int32_t ProfileAt(const std::string& text, std::size_t position) {
  if (position >= text.size() || text[position] != 'P') return 0;
  return static_cast<std::int32_t>(std::strtol(text.c_str() + position + 1, nullptr, 10));
}

// As the plug-in logs the end of a program: its exit code, or 256 times the signal.
int LoggedValue(int waitStatus) {
  return WIFSIGNALED(waitStatus) ? WTERMSIG(waitStatus) * 256 : WEXITSTATUS(waitStatus);
}

// The stand-in for curl ends in these ways before it has spoken to a server, curl itself with 7.
bool MayHaveReachedServer(int value) {
  constexpr int kNeverThere[] = {7, 6, 26, 35, 67, 9 * 256};
  return std::find(std::begin(kNeverThere), std::end(kNeverThere), value) == std::end(kNeverThere);
}

std::FILE* OpenForWriting(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "we");
  if (file == nullptr) throw std::system_error(errno, std::generic_category(), path);
  return file;
}

}  // namespace

Ledger::Ledger(const std::string& fates) : fates_(OpenForWriting(fates)) {}

void Ledger::EventBegins(std::int32_t event, const std::vector<Mention>& mentions, double seconds) {
  MutexLock lock(mutex_);
  event_ = event;
  mentions_ = mentions;
  eventBegin_ = seconds;
  accepted_.clear();
  ++counts_.events;
  counts_.mentions += mentions.size();
}

void Ledger::EventEnds(double seconds) {
  MutexLock lock(mutex_);
  for (const Mention& mention : mentions_) Settle(mention, seconds);
  mentions_.clear();
}

void Ledger::Settle(const Mention& mention, double seconds) {
  const bool accepted = accepted_.count(mention.profile) != 0;
  const std::string name =
      "event " + std::to_string(event_) + " for profile " + std::to_string(mention.profile) + " ";
  if (!mention.known || !mention.due) {
    if (accepted) return AddFault(name + "was accepted, but none was due");
    ++(mention.known ? counts_.notDue : counts_.unknown);
    return;
  }
  if (mention.throttle > 0) return CheckThrottle(mention, accepted, seconds);
  if (!accepted) AddFault(name + "came to nothing");
}

void Ledger::CheckThrottle(const Mention& mention, bool accepted, double seconds) {
  const auto last = throttling_.find(mention.profile);
  const bool isFirst = last == throttling_.end();
  const double interval = mention.throttle;
  const std::string name =
      "event " + std::to_string(event_) + " for profile " + std::to_string(mention.profile) + " ";
  if (accepted) {
    if (!isFirst && seconds - last->second.begin < interval - kClockSlack) {
      AddFault(name + "was accepted, but had to be throttled");
    }
    throttling_[mention.profile] = {eventBegin_, seconds};
    return;
  }
  ++counts_.throttled;
  if (isFirst || eventBegin_ - last->second.end > interval + kClockSlack) {
    AddFault(name + "was throttled, but was due");
  }
}

void Ledger::Accept(std::int32_t profile) {
  const bool isMentioned = std::any_of(mentions_.begin(), mentions_.end(),
                                       [&](const Mention& it) { return it.profile == profile; });
  if (!isMentioned) return AddFault("a notification that no event has asked for");
  if (!accepted_.insert(profile).second) return AddFault("an event was accepted twice");
  open_.emplace(MessageKey{profile, event_}, Message{});
  ++counts_.accepted;
}

void Ledger::Take(const tool::LogLine& line) {
  constexpr std::uint32_t kError = 75;
  MutexLock lock(mutex_);
  const std::string& text = line.text;
  if (BeginsWith(text, "Profile P") && Contains(text, ": PreTrigger(")) {
    return Accept(ProfileAt(text, sizeof("Profile ") - 1));
  }
  if (TakeWorkerLine(text)) return;
  if (BeginsWith(text, "Attachment ")) {
    ++counts_.clips;
  } else if (line.level == kError || BeginsWith(text, "Failed to ") ||
             BeginsWith(text, "Exception ") || Contains(text, " will be discarded")) {
    AddFault("a line that nothing here is a reason for: " + text);
  }
}

// False when the line says nothing of a message's way.
bool Ledger::TakeWorkerLine(const std::string& text) {
  if (BeginsWith(text, "Profile Description: ")) {
    AttemptLogged(text);
  } else if (Contains(text, "This message will be retried")) {
    Queue();
  } else if (Contains(text, "This message will NOT be retried")) {
    // For one of the retry queue, another line follows.
    const Message* message = Current(text);
    if (message != nullptr && !message->queued) Conclude(*current_, "refused", counts_.refused);
  } else if (BeginsWith(text, "Retrying failed notification for file ")) {
    ++counts_.retries;
  } else if (BeginsWith(text, "Retry for notification file (")) {
    LeaveQueue(text, "mailed late", counts_.mailedLate);
  } else if (BeginsWith(text, "Retry timeout reached for notification file (")) {
    LeaveQueue(text, "too old", counts_.tooOld);
  } else if (BeginsWith(text, "Message for profile ")) {
    PushOut(text);
  } else if (BeginsWith(text, "Clearing retry notifications queue. ")) {
    Clear(text);
  } else {
    return false;
  }
  return true;
}

void Ledger::Take(const tool::Launch& launch) {
  const auto option = std::find(launch.arguments.begin(), launch.arguments.end(), "-T");
  if (option == launch.arguments.end() || option + 1 == launch.arguments.end()) return;
  MutexLock lock(mutex_);
  ++counts_.attempts;
  request_ = launch.request;
  exitValue_.reset();
  current_ = KeyOfMessageFile(*(option + 1));
  if (!current_ || open_.count(*current_) == 0) {
    AddFault("curl was run for " + *(option + 1) + ", which is no message under way");
    current_.reset();
  }
}

void Ledger::Take(const tool::ProgramEnd& end) {
  MutexLock lock(mutex_);
  if (!current_ || end.request != request_) return;
  exitValue_ = LoggedValue(end.waitStatus);
  if (*exitValue_ == 0) return;
  ++counts_.failedAttempts;
  if (MayHaveReachedServer(*exitValue_)) ++open_[*current_].uncertainAttempts;
}

void Ledger::AttemptLogged(const std::string& text) {
  constexpr const char* kCode = "return code= ";
  const std::size_t at = text.find(kCode);
  const Message* message = Current(text);
  if (message == nullptr || at == std::string::npos) return;
  const int code = std::atoi(text.c_str() + at + std::char_traits<char>::length(kCode));
  if (!exitValue_ || *exitValue_ != code) return AddFault("curl did not end so: " + text);
  // For one of the retry queue, another line follows.
  if (code == 0 && !message->queued) Conclude(*current_, "mailed", counts_.mailed);
}

void Ledger::Queue() {
  Message* message = Current("a message will be retried");
  if (message == nullptr) return;
  if (message->queued) return AddFault("a message was queued twice");
  message->queued = true;
  queue_.push_back(*current_);
  ++counts_.queued;
}

void Ledger::LeaveQueue(const std::string& line, const char* fate, std::uint64_t& count) {
  const std::optional<MessageKey> key = KeyOfMessageFile(line);
  const auto same = [&key](const MessageKey& it) { return !(it < *key) && !(*key < it); };
  const auto found = key ? std::find_if(queue_.begin(), queue_.end(), same) : queue_.end();
  if (found == queue_.end()) return AddFault("this message is not in the retry queue: " + line);
  const bool delivered = exitValue_ && *exitValue_ == 0;
  if (!current_ || !same(*current_) || delivered != (&count == &counts_.mailedLate)) {
    AddFault("this is not how its last attempt ended: " + line);
  }
  queue_.erase(found);
  Conclude(*key, fate, count);
}

void Ledger::PushOut(const std::string& line) {
  if (queue_.empty()) return AddFault("a message was pushed out of an empty retry queue");
  const MessageKey oldest = queue_.front();
  queue_.pop_front();
  if (ProfileAt(line, sizeof("Message for profile ") - 1) != oldest.profile) {
    AddFault("the oldest message is " + SubjectOf(oldest) + ": " + line);
  }
  Conclude(oldest, "pushed out", counts_.pushedOut);
}

void Ledger::Clear(const std::string& text) {
  const int announced = std::atoi(text.c_str() + text.find(". ") + 2);
  if (announced != static_cast<int>(queue_.size())) {
    AddFault("the retry queue had " + std::to_string(queue_.size()) + " messages: " + text);
  }
  while (!queue_.empty()) {
    Conclude(queue_.front(), "cleared", counts_.cleared);
    queue_.pop_front();
  }
}

void Ledger::Take(const tool::ProfileReport& status) {
  MutexLock lock(mutex_);
  if (status.status == tool::kStatusDelivered) {
    ++counts_.reportsDelivered;
  } else if (status.status != tool::kStatusUnknown) {
    ++counts_.reportsFailed;
  }
}

// The message that the worker is sending; null, with a fault, when the line comes without one.
Ledger::Message* Ledger::Current(const std::string& line) {
  const auto found = current_ ? open_.find(*current_) : open_.end();
  if (found != open_.end()) return &found->second;
  AddFault("no message is being sent: " + line);
  return nullptr;
}

void Ledger::Conclude(const MessageKey& key, const char* fate, std::uint64_t& count) {
  const auto found = open_.find(key);
  if (found == open_.end()) {
    return AddFault("message " + SubjectOf(key) + " has two ends, the second: " + fate);
  }
  std::fprintf(fates_.get(), "%s,%s,%d\n", SubjectOf(key).c_str(), fate,
               found->second.uncertainAttempts);
  open_.erase(found);
  ++count;
}

void Ledger::AddFault(std::string text) {
  if (faults_.size() < kFaultsKept) faults_.push_back(std::move(text));
  ++faultCount_;
}

MailCounts Ledger::Counts() const {
  MutexLock lock(mutex_);
  MailCounts counts = counts_;
  counts.waiting = queue_.size();
  counts.unprocessed = open_.size() - queue_.size();
  return counts;
}

void Ledger::ExpectEqual(const char* what, std::uint64_t left, std::uint64_t right) {
  if (left == right) return;
  AddFault(std::string(what) + ": " + std::to_string(left) + " and " + std::to_string(right));
}

std::vector<std::string> Ledger::Balance() {
  MutexLock lock(mutex_);
  const MailCounts& it = counts_;
  ExpectEqual("profiles named by events, and those accepted, throttled, not due or unknown",
              it.mentions, it.accepted + it.throttled + it.notDue + it.unknown);
  ExpectEqual("notifications accepted, and those mailed or discarded", it.accepted,
              it.mailed + it.mailedLate + it.Discarded());
  ExpectEqual("messages queued, and those that left the queue", it.queued,
              it.mailedLate + it.tooOld + it.pushedOut + it.cleared);
  ExpectEqual("reports of a delivery, and deliveries", it.reportsDelivered,
              it.mailed + it.mailedLate);
  ExpectEqual("reports of a failure, and failures", it.reportsFailed, it.queued + it.refused);
  for (const auto& [key, message] : open_) AddFault("message " + SubjectOf(key) + " has no end");
  if (std::fflush(fates_.get()) != 0) AddFault("the fates could not be written");
  if (faultCount_ > faults_.size()) {
    faults_.push_back(std::to_string(faultCount_ - faults_.size()) + " more");
  }
  return faults_;
}

}  // namespace tvx::soak
