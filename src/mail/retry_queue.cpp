#include "mail/retry_queue.h"

#include <algorithm>
#include <list>
#include <utility>

#include "log/host_log.h"
#include "mail/spool.h"
#include "mail/transfer.h"

namespace tvx {
namespace {

constexpr std::int64_t kFirstInterval = 60'000;  // milliseconds
// Messages up to this size free too little to be worth losing.
constexpr std::uint32_t kSmallMessage = 4096;

using Messages = std::list<PendingMessage>;

// Takes a message out of the queue; returns the one behind it.
Messages::iterator Drop(NotifyHelper& helper, Messages::iterator message) {
  if (helper.untried == message) ++helper.untried;
  return helper.queue.erase(message);
}

// Takes a message out of the queue, and its file away, when the scope ends.
class DiscardedWithScope {
 public:
  DiscardedWithScope(NotifyHelper& helper, INotifyFileStream& stream, Messages::iterator message)
      : helper_(helper), stream_(stream), message_(message) {}
  ~DiscardedWithScope() {
    stream_.remove(message_->path);
    helper_.retryInterval = kFirstInterval;
    Drop(helper_, message_);
  }
  DiscardedWithScope(const DiscardedWithScope&) = delete;
  DiscardedWithScope& operator=(const DiscardedWithScope&) = delete;

 private:
  NotifyHelper& helper_;
  INotifyFileStream& stream_;
  const Messages::iterator message_;
};

void PushOutOldest(NotifyHelper& helper, std::int32_t maxQueue, INotifyFileStream& stream) {
  const PendingMessage& oldest = helper.queue.front();
  HostLog(kModuleId, helper.Host(), LogLevel::Information,
          "Maximum failed message queue limit of %d is exceeded.", maxQueue);
  HostLog(kModuleId, helper.Host(), LogLevel::Information,
          "Message for profile %s will be discarded", oldest.profileDescription.c_str());
  stream.remove(oldest.path);
  Drop(helper, helper.queue.begin());
}

// Drops large messages, oldest first, until the volume has room again. False when it has not.
bool MakeRoom(NotifyHelper& helper, INotifyFileStream& stream) {
  std::uint64_t available = stream.space(DataDirectory());
  if (available >= kFreeSpaceThreshold) return true;
  HostLog(kModuleId, helper.Host(), LogLevel::Information,
          "Available bytes %llu are less than threshold of %u. Attempting to purge failed "
          "notifications",
          static_cast<unsigned long long>(available), kFreeSpaceThreshold);
  auto message = helper.queue.begin();
  while (message != helper.queue.end() && available < kFreeSpaceThreshold) {
    if (message->size <= kSmallMessage) {
      ++message;
      continue;
    }
    HostLog(kModuleId, helper.Host(), LogLevel::Information,
            "Minimum free space threshold exceeded. Message for profile %s (%s) will be discarded",
            message->profileDescription.c_str(), message->path.c_str());
    if (stream.remove(message->path)) available += message->size;
    message = Drop(helper, message);
  }
  // The sum is only what should have become free; others write to the volume, too.
  return available >= kFreeSpaceThreshold && stream.space(DataDirectory()) >= kFreeSpaceThreshold;
}

// Whether the message leaves the queue after this attempt.
bool IsFinished(NotifyHelper& helper, const PendingMessage& message, SendResult result,
                std::int64_t now, std::int32_t maxRetrySeconds) {
  if (result == SendResult::Sent || result == SendResult::Unknown) return true;
  const std::int64_t age = now - message.firstAttempt;
  if (result == SendResult::Retry && age < std::int64_t{maxRetrySeconds} * 1000) return false;
  HostLog(kModuleId, helper.Host(), LogLevel::Information,
          "Retry timeout reached for notification file (%s).  Message for profile %s will be "
          "discarded",
          message.path.c_str(), message.profileDescription.c_str());
  return true;
}

}  // namespace

void EnqueueForRetry(NotifyHelper& helper, std::list<PendingMessage> newMessage,
                     std::int32_t maxQueue, INotifyFileStream& stream) {
  PendingMessage& message = newMessage.front();
  if (!helper.queue.empty() && maxQueue <= static_cast<std::int64_t>(helper.queue.size())) {
    PushOutOldest(helper, maxQueue, stream);
  }
  if (!MakeRoom(helper, stream)) {
    HostLog(kModuleId, helper.Host(), LogLevel::Warning,
            "Unable to free up space by removing items from notification retry queue. Message (%s) "
            "for profile %s will be discarded",
            message.path.c_str(), message.profileDescription.c_str());
    stream.remove(message.path);
    return;
  }
  const std::int64_t now = helper.Now();
  helper.retryInterval = kFirstInterval;
  if (helper.queue.empty()) helper.nextRetry = now + kFirstInterval;
  message.firstAttempt = now;
  message.lastAttempt = now;
  helper.queue.splice(helper.queue.end(), newMessage);
  if (helper.untried == helper.queue.end()) --helper.untried;
  ++helper.messageCounter;
}

bool RetryPass(NotifyHelper& helper, INotifyFileStream& stream, std::int32_t maxRetrySeconds) {
  if (helper.queue.empty()) return false;
  const std::int64_t now = helper.Now();
  if (now < helper.nextRetry) return false;

  helper.untried = std::find_if(
      helper.untried, helper.queue.end(),
      [&](const PendingMessage& message) { return message.lastAttempt < helper.nextRetry; });
  if (helper.untried == helper.queue.end()) {
    helper.retryInterval *= 2;
    helper.nextRetry = now + helper.retryInterval;
    helper.untried = helper.queue.begin();
    return false;
  }
  const auto message = helper.untried++;
  message->lastAttempt = now;
  HostLog(kModuleId, helper.Host(), LogLevel::Information,
          "Retrying failed notification for file %s", message->path.c_str());
  const SendResult result = SendMessage(*message, helper);
  if (!IsFinished(helper, *message, result, now, maxRetrySeconds)) return true;
  // Also when the report fails: a message that was sent and stayed would be sent again.
  const DiscardedWithScope discarded(helper, stream, message);
  if (result == SendResult::Sent) {
    HostLog(kModuleId, helper.Host(), LogLevel::Information,
            "Retry for notification file (%s) suceeded.", message->path.c_str());
    helper.ReportStatus(message->profileId, ProfileStatus::Delivered);
  }
  return true;
}

void ClearRetryQueue(NotifyHelper& helper, INotifyFileStream& stream) {
  if (helper.queue.empty()) return;
  HostLog(kModuleId, helper.Host(), LogLevel::Information,
          "Clearing retry notifications queue. %d failed notifications will be discarded",
          static_cast<int>(helper.queue.size()));
  for (const PendingMessage& message : helper.queue) stream.remove(message.path);
  helper.queue.clear();
  helper.untried = helper.queue.end();
  helper.unreachable.clear();
}

}  // namespace tvx
