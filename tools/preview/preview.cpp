#include "preview/preview.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "config/notify_profile.h"
#include "mail/address.h"
#include "mail/composition.h"
#include "mail/pending_message.h"
#include "preview/memory_file_stream.h"
#include "service/notification_text.h"
#include "service/work_item.h"

namespace tvx::tool {
namespace {

constexpr const char* kSubjectHeader = "\r\nSubject: ";

void TellBadAddresses(const NotifyProfile& profile, std::vector<std::string>& faults) {
  const auto check = [&](const char* what, std::string address) {
    if (!ValidateAddress(address)) {
      faults.push_back(std::string(what) + " \"" + address +
                       "\" is no address: the message cannot be sent");
    }
  };
  check("from", profile.from);
  for (const std::string& address : profile.to) check("to", address);
  for (const std::string& address : profile.cc) check("cc", address);
  for (const std::string& address : profile.bcc) check("bcc", address);
}

// What the message file has behind the body: the notes on attachments, up to the next boundary.
std::string NotesBehind(const std::string& body, const std::string& message) {
  const std::size_t end = message.find("\r\n\r\n");
  const std::size_t text = message.find("\r\n\r\n", end + 4);
  const std::size_t notes = text + 4 + body.size();
  return message.substr(notes, message.find("\r\n--", notes) - notes);
}

void TakeMessage(const MessageContent& content, const SampleAttachments& attachments,
                 const PendingMessage& pending, Preview& preview) {
  preview.from = pending.from;
  auto next = pending.recipients.begin();
  for (std::vector<std::string>* list : {&preview.to, &preview.cc, &preview.bcc}) {
    for (std::string& address : *list) address = *next++;
  }
  const std::size_t subject = preview.message.find(kSubjectHeader) + sizeof("\r\nSubject: ") - 1;
  preview.subject =
      preview.message.substr(subject, preview.message.find("\r\n", subject) - subject);
  if (attachments.entries.empty()) return;
  preview.notes = NotesBehind(content.body, preview.message);
  for (const AttachmentEntry& entry : attachments.entries) {
    if (entry.include) {
      preview.attached.push_back(std::filesystem::path(entry.path).filename().string());
    }
  }
}

std::size_t CountFindings(const Pieces& pieces) {
  return static_cast<std::size_t>(std::count_if(pieces.begin(), pieces.end(), [](const Piece& it) {
    return it.fate != Fate::Text && it.fate != Fate::Replaced;
  }));
}

void AddRemarks(const SampleEvent& event, const SampleAttachments& attachments,
                const NotifyProfile& profile, Preview& preview) {
  const auto isMadeUp = [&](const Piece& piece) {
    return piece.fate == Fate::Replaced && piece.before == "{weblink}" && !event.webLink &&
           piece.after.compare(0, 1, "[") != 0;
  };
  if (std::any_of(preview.bodyPieces.begin(), preview.bodyPieces.end(), isMadeUp)) {
    preview.remarks.emplace_back(
        "the link is an example: the web server was not asked for the system's id");
  }
  if (attachments.entries.empty()) return;
  if (event.isTest) {
    preview.remarks.emplace_back("a test message never has attachments");
  } else if (!profile.attach) {
    preview.remarks.emplace_back("the profile does not attach video");
  }
}

}  // namespace

std::size_t Preview::Findings() const {
  return faults.size() + CountFindings(subjectPieces) + CountFindings(bodyPieces);
}

Preview MakePreview(const SampleEvent& event, const SampleAttachments& attachments,
                    const std::shared_ptr<const NotifyConfig>& config,
                    const NotifyProfile& profile) {
  const std::shared_ptr<NotifyWorkItem> item = MakeNotification(event, config, profile);
  Preview preview;
  preview.profile = profile.ID;
  preview.description = profile.description;
  MessageContent content = ContentOf(*item);
  TemplateTrace subject(content.subject, false);
  TemplateTrace body(content.body, true);
  ExpandTexts(*item, [&] { return SampleWebLink(event, *item); }, content.subject, content.body,
              {[&](const Replacement& step) { subject.Take(step); },
               [&](const Replacement& step) { body.Take(step); }});
  preview.subjectPieces = subject.Result();
  preview.bodyPieces = body.Result();
  preview.from = content.from;
  preview.to = content.to;
  preview.cc = content.cc;
  preview.bcc = content.bcc;
  preview.subject = content.subject;
  preview.body = content.body;

  MemoryFileStream file;
  PendingMessage pending;
  if (ComposeMessage(content, attachments.entries, attachments.part, attachments.partCount, 0, file,
                     pending)) {
    preview.message = file.TakeContent();
    TakeMessage(content, attachments, pending, preview);
  } else {
    TellBadAddresses(profile, preview.faults);
  }
  AddRemarks(event, attachments, profile, preview);
  return preview;
}

}  // namespace tvx::tool
