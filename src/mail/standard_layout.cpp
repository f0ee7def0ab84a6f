#include "mail/standard_layout.h"

#include <sys/random.h>

#include <boost/filesystem/path.hpp>
#include <cstdio>
#include <ctime>
#include <string>

#include "base/clock.h"
#include "base/utf8.h"
#include "mail/address.h"
#include "mail/base64_file.h"
#include "mail/mime_text.h"
#include "mail/notify_file.h"

namespace tvx {
namespace {

constexpr const char* kCrlf = "\r\n";

// The time of writing. The names are the standard's, whatever language the host speaks.
std::string DateField() {
  constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const auto now = static_cast<std::time_t>(WallSeconds());
  std::tm local{};
  ::localtime_r(&now, &local);
  const long minutes = local.tm_gmtoff / 60;
  const long distance = minutes < 0 ? -minutes : minutes;
  char text[64];
  std::snprintf(text, sizeof(text), "Date: %s, %02d %s %04d %02d:%02d:%02d %c%02ld%02ld\r\n",
                kDays[local.tm_wday], local.tm_mday, kMonths[local.tm_mon], local.tm_year + 1900,
                local.tm_hour, local.tm_min, local.tm_sec, minutes < 0 ? '-' : '+', distance / 60,
                distance % 60);
  return text;
}

// Digits that no other message has. Without them there is still the name of the file.
std::string RandomDigits() {
  unsigned long long number = 0;
  if (::getrandom(&number, sizeof(number), GRND_NONBLOCK) < 0) number = 0;
  char digits[20];
  std::snprintf(digits, sizeof(digits), "%016llx", number);
  return digits;
}

// The addresses of one list, each on a line of its own; nothing for an empty list.
std::string AddressField(const char* name, std::vector<std::string>::const_iterator begin,
                         std::vector<std::string>::const_iterator end) {
  std::string field;
  for (; begin != end; ++begin) field.append(field.empty() ? name : ",\r\n").append(" " + *begin);
  return field.empty() ? field : field + kCrlf;
}

// What stands before the address that the sender is known by: Name <address>, "Name" <address>.
std::string DisplayName(const std::string& text, const std::string& address) {
  const std::size_t end = text.find("<" + address);
  if (end == std::string::npos) return {};
  std::string name;
  for (std::size_t at = 0; at < end; ++at) {
    if (text[at] == '\\' && at + 1 < end) {
      name.push_back(text[++at]);
    } else if (text[at] != '"') {
      name.push_back(text[at]);
    }
  }
  name.erase(name.find_last_not_of(" \t\r\n") + 1);
  return name.erase(0, name.find_first_not_of(" \t\r\n"));
}

std::string Subject(const MessageContent& content, std::int32_t part, std::int32_t partCount) {
  if (part == 0) return OnOneLine(content.subject);
  return OnOneLine(content.subject) + " - Part " + std::to_string(part) + " of " +
         std::to_string(partCount);
}

// The body, and a line for each note.
std::string Text(const MessageContent& content, const std::vector<AttachmentEntry>& attachments) {
  std::string text = ToUtf8(content.body);
  for (const AttachmentEntry& attachment : attachments) {
    if (!attachment.note.empty()) text += "\n- " + ToUtf8(OneLine(attachment.note));
  }
  return text;
}

void WriteTextPart(const TextBody& body, INotifyFileStream& stream) {
  stream.write("Content-Type: text/plain; charset=UTF-8").write(kCrlf);
  stream.write("Content-Transfer-Encoding: ").write(body.encoding).write(kCrlf).write(kCrlf);
  stream.write(body.text);
}

void WriteFilePart(const AttachmentEntry& attachment, INotifyFileStream& stream) {
  stream.write("Content-Type: ").write(ContentTypeOf(attachment)).write(kCrlf);
  stream.write("Content-Transfer-Encoding: base64").write(kCrlf);
  const std::string name = boost::filesystem::path(attachment.path).filename().string();
  stream.write("Content-Disposition: attachment").write(FileNameParameters(name));
  stream.write(kCrlf).write(kCrlf);
  CNotifyFileImpl file(attachment.path);
  Base64EncodeFile(file, kCrlf, stream);
  stream.write(kCrlf);
}

}  // namespace

void WriteStandardMessage(const MessageContent& content,
                          const std::vector<AttachmentEntry>& attachments, std::int32_t part,
                          std::int32_t partCount, const PendingMessage& pending,
                          INotifyFileStream& stream) {
  const std::string unique = RandomDigits();
  const auto to = pending.recipients.begin();
  const auto cc = to + static_cast<std::ptrdiff_t>(content.to.size());
  stream.write(DateField());
  stream.write("Message-ID: <" + boost::filesystem::path(pending.path).filename().string() + "." +
               unique + "@" + HelloName(content.delivery.HelloName, pending.from) + ">" + kCrlf);
  stream.write(NameField("From", DisplayName(content.from, pending.from), pending.from));
  stream.write(AddressField("To:", to, cc));
  stream.write(AddressField("Cc:", cc, cc + static_cast<std::ptrdiff_t>(content.cc.size())));
  stream.write(TextField("Subject", Subject(content, part, partCount)));
  stream.write("Auto-Submitted: auto-generated").write(kCrlf);
  stream.write("MIME-Version: 1.0").write(kCrlf);
  const TextBody body = EncodeBody(Text(content, attachments));
  if (attachments.empty()) return WriteTextPart(body, stream);

  // No encoded text holds "=_", but a plain one may hold anything.
  std::string boundary = "=_" + unique;
  while (body.text.find(boundary) != std::string::npos) boundary += "_";
  stream.write("Content-Type: multipart/mixed; boundary=\"" + boundary + "\"" + kCrlf + kCrlf);
  stream.write("--" + boundary + kCrlf);
  WriteTextPart(body, stream);
  for (const AttachmentEntry& attachment : attachments) {
    if (!attachment.include) continue;
    stream.write("--" + boundary + kCrlf);
    WriteFilePart(attachment, stream);
  }
  stream.write("--" + boundary + "--" + kCrlf);
}

}  // namespace tvx
