#include "mail/composition.h"

#include <boost/filesystem/path.hpp>
#include <cstring>

#include "base/utf8.h"
#include "mail/address.h"
#include "mail/base64_file.h"
#include "mail/notify_file.h"
#include "mail/spool.h"
#include "mail/standard_layout.h"

namespace tvx {
namespace {

constexpr const char* kCrlf = "\r\n";
constexpr const char* kBoundary = "b1914efc629febb89915e8a6f83ba6eb";

// No server takes a longer one, and header lines must not grow without limit.
constexpr std::size_t kLongestAddress = 320;

// False when an address is none.
bool TakeEnvelope(const MessageContent& content, PendingMessage& pending) {
  const auto isGood = [&](std::string& address) {
    return ValidateAddress(address) &&
           (!content.delivery.Standard || address.size() <= kLongestAddress);
  };
  pending.from = content.from;
  if (!isGood(pending.from)) return false;
  for (const auto* list : {&content.to, &content.cc, &content.bcc}) {
    for (std::string address : *list) {
      if (!isGood(address)) return false;
      pending.recipients.push_back(std::move(address));
    }
  }
  return true;
}

// Each address on a header line of its own. A blind copy is nowhere in the file.
void WriteAddresses(const MessageContent& content, const PendingMessage& pending,
                    INotifyFileStream& stream) {
  stream.write("From: ").write(pending.from).write(kCrlf);
  const std::size_t shown = content.to.size() + content.cc.size();
  for (std::size_t i = 0; i < shown; ++i) {
    stream.write(i < content.to.size() ? "To: " : "Cc: ").write(pending.recipients[i]).write(kCrlf);
  }
}

void WriteSubject(const MessageContent& content, std::int32_t part, std::int32_t partCount,
                  INotifyFileStream& stream) {
  stream.write("Subject: ").write(OnOneLine(content.subject));
  if (part > 0) stream.write(" - Part ").write(part).write(" of ").write(partCount);
  stream.write(kCrlf);
}

void WriteBoundary(INotifyFileStream& stream) {
  stream.write("--").write(kBoundary).write(kCrlf);
}

// A name that holds the boundary must not end the part that it stands in.
std::string WithoutBoundary(std::string text) {
  const std::size_t length = std::strlen(kBoundary);
  for (std::size_t at = 0; (at = text.find(kBoundary, at)) != std::string::npos; at += length) {
    text.insert(at, 1, ' ');
  }
  return text;
}

void WriteTextPart(const MessageContent& content, const std::vector<AttachmentEntry>& attachments,
                   INotifyFileStream& stream) {
  WriteBoundary(stream);
  stream.write("Content-Type: text/plain").write(kCrlf).write(kCrlf);
  stream.write(WithoutBoundary(content.body));
  for (const AttachmentEntry& attachment : attachments) {
    if (attachment.note.empty()) continue;
    stream.write("\n- ").write(WithoutBoundary(OneLine(attachment.note)));
  }
}

void WriteFilePart(const AttachmentEntry& attachment, INotifyFileStream& stream) {
  stream.write(kCrlf);
  WriteBoundary(stream);
  stream.write("Content-Type: ").write(ContentTypeOf(attachment)).write(kCrlf);
  stream.write("Content-Transfer-Encoding: base64").write(kCrlf);
  stream.write("Content-Disposition: attachment; filename=\"")
      .write(OneLine(boost::filesystem::path(attachment.path).filename().string()))
      .write("\"")
      .write(kCrlf)
      .write(kCrlf);
  CNotifyFileImpl file(attachment.path);
  Base64EncodeFile(file, "\n", stream);
}

void WriteMultipart(const MessageContent& content, const std::vector<AttachmentEntry>& attachments,
                    INotifyFileStream& stream) {
  stream.write("Content-Type: multipart/mixed; boundary=\"").write(kBoundary).write("\"");
  stream.write(kCrlf).write(kCrlf);
  WriteTextPart(content, attachments, stream);
  for (const AttachmentEntry& attachment : attachments) {
    if (attachment.include) WriteFilePart(attachment, stream);
  }
  stream.write(kCrlf).write("--").write(kBoundary).write("--").write(kCrlf);
}

void WriteMessage(const MessageContent& content, const std::vector<AttachmentEntry>& attachments,
                  std::int32_t part, std::int32_t partCount, const PendingMessage& pending,
                  INotifyFileStream& stream) {
  WriteAddresses(content, pending, stream);
  WriteSubject(content, part, partCount, stream);
  if (attachments.empty()) {
    stream.write(kCrlf).write(content.body);
  } else {
    WriteMultipart(content, attachments, stream);
  }
}

}  // namespace

std::string OnOneLine(const std::string& text) {
  std::string line;
  line.reserve(text.size());
  bool inBreak = false;
  for (const char c : text) {
    const bool isBreak = c == '\r' || c == '\n';
    if (!isBreak) line.push_back(c);
    if (isBreak && !inBreak) line.push_back(' ');
    inBreak = isBreak;
  }
  return line;
}

const char* ContentTypeOf(const AttachmentEntry& attachment) {
  const bool isMovie = boost::filesystem::path(attachment.path).extension() == ".mov";
  return isMovie ? "video/quicktime" : "image/jpeg";
}

std::string MessagePath(const MessageContent& content, std::int32_t part, std::int32_t partCount,
                        std::uint32_t sequence) {
  std::string path = std::string("./") + kDataFolder + "/" + kMessagePrefix +
                     std::to_string(content.profileId) + "-" +
                     std::to_string(content.eventSeconds) + "-" +
                     std::to_string(content.eventMilliseconds) + "-" + std::to_string(sequence);
  if (part > 0) path += "-Part-" + std::to_string(part) + "-of-" + std::to_string(partCount);
  return path;
}

bool ComposeMessage(const MessageContent& content, const std::vector<AttachmentEntry>& attachments,
                    std::int32_t part, std::int32_t partCount, std::uint32_t sequence,
                    INotifyFileStream& stream, PendingMessage& pending) {
  const std::string path = MessagePath(content, part, partCount, sequence);
  if (!stream.open(path, std::ios::binary | std::ios::trunc)) return false;
  try {
    pending.path = path;
    pending.delivery = content.delivery;
    if (!TakeEnvelope(content, pending)) {
      stream.close();
      return false;
    }
    const auto write = content.delivery.Standard ? WriteStandardMessage : WriteMessage;
    write(content, attachments, part, partCount, pending, stream);
    pending.size = static_cast<std::uint32_t>(stream.position());
    return !stream.fail();
  } catch (...) {
    stream.close();
    throw;
  }
}

}  // namespace tvx
