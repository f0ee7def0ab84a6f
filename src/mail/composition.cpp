#include "mail/composition.h"

#include <boost/filesystem/path.hpp>
#include <cstring>

#include "base/utf8.h"
#include "mail/address.h"
#include "mail/base64_file.h"
#include "mail/notify_file.h"
#include "mail/spool.h"

namespace tvx {
namespace {

constexpr const char* kCrlf = "\r\n";
constexpr const char* kBoundary = "b1914efc629febb89915e8a6f83ba6eb";

// A subject is one header line, whatever the template or the event brought into it.
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

// Writes the addresses, each on a header line of its own, and collects them as recipients. A null
// header collects only: a blind copy is nowhere in the file.
bool WriteRecipients(const std::vector<std::string>& addresses, const char* header,
                     INotifyFileStream& stream, PendingMessage& pending) {
  for (std::string address : addresses) {
    if (!ValidateAddress(address)) return false;
    if (header != nullptr) stream.write(header).write(address).write(kCrlf);
    pending.recipients.push_back(std::move(address));
  }
  return true;
}

bool WriteAddresses(const MessageContent& content, INotifyFileStream& stream,
                    PendingMessage& pending) {
  pending.from = content.from;
  if (!ValidateAddress(pending.from)) return false;
  stream.write("From: ").write(pending.from).write(kCrlf);
  return WriteRecipients(content.to, "To: ", stream, pending) &&
         WriteRecipients(content.cc, "Cc: ", stream, pending) &&
         WriteRecipients(content.bcc, nullptr, stream, pending);
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
  const boost::filesystem::path path(attachment.path);
  const bool isMovie = path.extension() == ".mov";
  stream.write(kCrlf);
  WriteBoundary(stream);
  stream.write("Content-Type: ").write(isMovie ? "video/quicktime" : "image/jpeg").write(kCrlf);
  stream.write("Content-Transfer-Encoding: base64").write(kCrlf);
  stream.write("Content-Disposition: attachment; filename=\"")
      .write(OneLine(path.filename().string()))
      .write("\"")
      .write(kCrlf)
      .write(kCrlf);
  CNotifyFileImpl file(attachment.path);
  Base64EncodeFile(file, stream);
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

}  // namespace

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
    if (!WriteAddresses(content, stream, pending)) {
      stream.close();
      return false;
    }
    WriteSubject(content, part, partCount, stream);
    if (attachments.empty()) {
      stream.write(kCrlf).write(content.body);
    } else {
      WriteMultipart(content, attachments, stream);
    }
    pending.size = static_cast<std::uint32_t>(stream.position());
    return !stream.fail();
  } catch (...) {
    stream.close();
    throw;
  }
}

}  // namespace tvx
