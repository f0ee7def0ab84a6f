#include "service/notification_processing.h"

#include <list>
#include <utility>
#include <vector>

#include "log/host_log.h"
#include "mail/composition.h"
#include "mail/retry_queue.h"
#include "mail/spool.h"
#include "mail/transfer.h"
#include "service/notification_text.h"
#include "video/attachment_preparation.h"
#include "web/http_get.h"

namespace tvx {
namespace {

// Files that go when the scope does, whatever its outcome.
class FilesOfScope {
 public:
  explicit FilesOfScope(INotifyFileStream& stream) : stream_(stream) {}
  ~FilesOfScope() {
    for (const std::string& path : paths_) stream_.remove(path);
  }
  FilesOfScope(const FilesOfScope&) = delete;
  FilesOfScope& operator=(const FilesOfScope&) = delete;

  void Add(const std::string& path) { paths_.push_back(path); }
  void Keep() { paths_.clear(); }

 private:
  INotifyFileStream& stream_;
  std::vector<std::string> paths_;
};

// The mode may have come on while the notification was parked or queued.
void OmitAttachmentsIfForbidden(NotifyWorkItem& item, const NotifyConfig& snapshot,
                                HostServiceEntry host) {
  if (!snapshot.secondReviewerMode || !item.attachVideo) return;
  item.attachVideo = false;
  item.videos.clear();
  HostLog(kModuleId, host, LogLevel::Warning, "Attachments will be omitted for \"%s\"",
          item.profile->description.c_str());
}

// With standard delivery the reader is told of a camera without any video as of one whose video
// failed.
void NoteMissingVideo(const NotifyWorkItem& item, std::vector<AttachmentEntry>& group) {
  if (!item.config->delivery.Standard) return;
  for (const AttachmentSource& source : item.videos) {
    if (source.clip != nullptr) continue;
    group.push_back({false,
                     {},
                     "Failed to prepare video attachment for source: \"\"" + source.name +
                         "\"\", there is no video of it"});
  }
}

bool ComposeAndClose(const MessageContent& content, const std::vector<AttachmentEntry>& group,
                     std::int32_t part, std::int32_t partCount, NotifyHelper& helper,
                     INotifyFileStream& stream, PendingMessage& pending) {
  if (!ComposeMessage(content, group, part, partCount, helper.messageCounter, stream, pending)) {
    stream.close();
    return false;
  }
  stream.close();
  return !stream.fail();  // a full disk may show only now
}

// Composes and sends the message of one group. True when it was delivered.
bool SendGroup(const NotifyWorkItem& item, const MessageContent& content,
               const std::vector<AttachmentEntry>& group, std::int32_t part, std::int32_t partCount,
               const NotifyConfig& snapshot, NotifyHelper& helper, INotifyFileStream& stream) {
  const char* profile = item.profile->description.c_str();
  std::list<PendingMessage> message(1);  // as the retry queue takes it
  PendingMessage& pending = message.front();
  pending.servers = item.config->servers;
  pending.profileDescription = item.profile->description;
  pending.profileId = content.profileId;
  FilesOfScope messageFile(stream);
  messageFile.Add(MessagePath(content, part, partCount, helper.messageCounter));

  // Nothing will be launched once the host stops: what is left to do is to say so.
  if (!helper.IsStopped() &&
      !ComposeAndClose(content, group, part, partCount, helper, stream, pending)) {
    HostLog(kModuleId, helper.Host(), LogLevel::Error,
            "Failed to prepare email notification file. (Profile Description: %s)", profile);
    return false;
  }
  const SendResult result = SendMessage(pending, helper);
  if (result == SendResult::Retry) {
    HostLog(kModuleId, helper.Host(), LogLevel::Error,
            "Failed to send notification using profile %s.  This message will be retried", profile);
    EnqueueForRetry(helper, std::move(message), snapshot.MaxRetryQueue, stream);
    messageFile.Keep();  // the queue removes it
  }
  return result == SendResult::Sent;
}

}  // namespace

ProfileStatus ProcessNotification(NotifyWorkItem& item, const NotifyConfig& snapshot,
                                  NotifyHelper& helper, INotifyFileStream& stream) {
  if (!stream.createDirectory(DataDirectory())) {
    HostLog(kModuleId, helper.Host(), LogLevel::Error, "Unable to create data directory: \"%s\"",
            DataDirectory().c_str());
    return ProfileStatus::Failed;
  }
  OmitAttachmentsIfForbidden(item, snapshot, helper.Host());

  if (helper.IsStopped()) item.videos.clear();
  FilesOfScope attachmentFiles(stream);
  AttachmentGroups groups =
      PrepareVideoAttachments(item.videos, MegabytesToBytes(item.config->EmailSizeLimitMB),
                              DataDirectory(), helper.Host(), [&](const std::string& path) {
                                attachmentFiles.Add(path);
                                return !helper.IsStopped();
                              });
  NoteMissingVideo(item, groups.back());
  item.videos.clear();  // the frames are the host's again while the mail is on its way

  MessageContent content = ContentOf(item);
  const WebFetch fetch = [&](const WebServerAddress& address, const std::string& path) {
    return HttpGet(address, path, kHttpDeadline, [&] { return helper.IsStopped(); });
  };
  ExpandTexts(
      item, [&] { return WebLinkFor(item, helper.Host(), fetch); }, content.subject, content.body);

  const auto partCount = static_cast<std::int32_t>(groups.size());
  bool delivered = true;
  std::int32_t part = partCount == 1 ? 0 : 1;
  for (const std::vector<AttachmentEntry>& group : groups) {
    if (!SendGroup(item, content, group, part++, partCount, snapshot, helper, stream))
      delivered = false;
  }
  return delivered ? ProfileStatus::Delivered : ProfileStatus::Failed;
}

}  // namespace tvx
