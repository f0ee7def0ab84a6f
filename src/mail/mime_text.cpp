#include "mail/mime_text.h"

#include <algorithm>
#include <boost/locale/utf.hpp>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "base/percent_encode.h"
#include "base/utf8.h"

namespace tvx {
namespace {

using Utf8 = boost::locale::utf::utf_traits<char>;

constexpr const char* kCrlf = "\r\n";
constexpr std::size_t kLineLength = 76;      // that nobody objects to
constexpr std::size_t kLongestLine = 998;    // that everybody must take
constexpr std::size_t kFileNameBytes = 255;  // that a file system takes, too

// What Windows-1252 has in the place of the control characters of ISO 8859-1; its five gaps are
// what they are there.
constexpr std::uint16_t kWindowsCharacters[] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

bool IsUtf8(const std::string& text) {
  for (auto at = text.begin(); at != text.end();) {
    if (!boost::locale::utf::is_valid_codepoint(Utf8::decode(at, text.end()))) return false;
  }
  return true;
}

bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > 0; });
}

bool IsAlphanumeric(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

void AppendHex(std::string& text, char c) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  text.push_back('=');
  text.push_back(kDigits[byte >> 4]);
  text.push_back(kDigits[byte & 15]);
}

// Encoded words behind what the line already holds, folded between them; none ends within a
// character.
void AppendEncodedWords(std::string& field, const std::string& text) {
  constexpr const char* kBegin = "=?UTF-8?Q?";
  constexpr const char* kEnd = "?=";
  std::size_t lineStart = 0;
  field += kBegin;
  for (auto at = text.begin(); at != text.end();) {
    const auto begin = at;
    Utf8::decode(at, text.end());
    std::string encoded;
    std::for_each(begin, at, [&](char c) {
      if (c == ' ') {
        encoded.push_back('_');
      } else if (IsAlphanumeric(c)) {
        encoded.push_back(c);
      } else {
        AppendHex(encoded, c);
      }
    });
    if (field.size() - lineStart + encoded.size() + std::strlen(kEnd) > kLineLength) {
      field.append(kEnd).append(kCrlf);
      lineStart = field.size();
      field.append(" ").append(kBegin);
    }
    field += encoded;
  }
  field += kEnd;
}

// The text behind what the field already holds, folded at single blanks. False, and the field as it
// was, when a line would still be too long or an encoded word be read where none is meant.
bool AppendFolded(std::string& field, const std::string& text) {
  if (!IsAscii(text) || text.find("=?") != std::string::npos) return false;
  const std::size_t before = field.size();
  std::size_t lineStart = 0;
  for (std::size_t at = 0; at < text.size();) {
    // A word, with the blanks before it. Blanks alone make no line.
    std::size_t end = text.find_first_not_of(' ', at);
    end = end == std::string::npos ? text.size() : std::min(text.find(' ', end), text.size());
    const bool isLast = text.find_first_not_of(' ', end) == std::string::npos;
    if (isLast) end = text.size();
    if (at > 0 && field.size() - lineStart + (end - at) > kLineLength) {
      field += kCrlf;
      lineStart = field.size();
    }
    field.append(text, at, end - at);
    if (field.size() - lineStart > kLongestLine) {
      field.resize(before);
      return false;
    }
    at = end;
  }
  return true;
}

// The text's line ends, whichever they are, as mail has them; the last line has one, too.
std::string WithMailLineEnds(const std::string& text) {
  std::string lines;
  lines.reserve(text.size() + text.size() / 16 + 2);
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n') continue;
    if (text[at] == '\r' || text[at] == '\n') {
      lines += kCrlf;
    } else {
      lines.push_back(text[at]);
    }
  }
  if (lines.empty() || lines.back() != '\n') lines += kCrlf;
  return lines;
}

// Whether the lines can go as they are.
bool IsPlain(const std::string& lines) {
  std::size_t length = 0;
  for (const char c : lines) {
    if (c == '\n') {
      length = 0;
      continue;
    }
    const bool isCharacter = (c >= ' ' && c < 0x7F) || c == '\t' || c == '\r';
    if (!isCharacter || ++length > kLongestLine + 1) return false;
  }
  return true;
}

std::string QuotedPrintable(const std::string& lines) {
  std::string encoded;
  std::size_t lineStart = 0;
  for (std::size_t at = 0; at < lines.size(); ++at) {
    const char c = lines[at];
    if (c == '\r') {  // with its line feed, there are no others
      encoded += kCrlf;
      lineStart = encoded.size();
      ++at;
      continue;
    }
    // A blank that ends its line would be cut off on the way.
    const bool isBlank = c == ' ' || c == '\t';
    const bool isPlain = isBlank ? lines[at + 1] != '\r' : c > ' ' && c <= '~' && c != '=';
    std::string character;
    if (isPlain) {
      character.push_back(c);
    } else {
      AppendHex(character, c);
    }
    if (encoded.size() - lineStart + character.size() >= kLineLength) {
      encoded.append("=").append(kCrlf);
      lineStart = encoded.size();
    }
    encoded += character;
  }
  return encoded;
}

}  // namespace

std::string ToUtf8(const std::string& text) {
  if (IsUtf8(text)) return text;
  std::string converted;
  converted.reserve(text.size() * 2);
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isOther = byte >= 0x80 && byte < 0xA0;
    Utf8::encode(isOther ? kWindowsCharacters[byte - 0x80] : byte, std::back_inserter(converted));
  }
  return converted;
}

std::string TextField(const std::string& name, const std::string& text) {
  const std::string line = OneLine(ToUtf8(text));
  std::string field = name + ": ";
  if (!AppendFolded(field, line)) AppendEncodedWords(field, line);
  return field + kCrlf;
}

std::string NameField(const std::string& field, const std::string& name,
                      const std::string& address) {
  const std::string line = OneLine(ToUtf8(name));
  if (line.empty()) return field + ": " + address + kCrlf;
  std::string text = field + ": ";
  if (!IsAscii(line) || line.size() > kLineLength / 2 || line.find("=?") != std::string::npos) {
    AppendEncodedWords(text, line);
  } else {
    text.push_back('"');
    for (const char c : line) {
      if (c == '"' || c == '\\') text.push_back('\\');
      text.push_back(c);
    }
    text.push_back('"');
  }
  const std::size_t lastLine = text.size() - (text.rfind('\n') + 1);
  if (lastLine + address.size() + 3 > kLineLength) text += kCrlf;
  return text + " <" + address + ">" + kCrlf;
}

TextBody EncodeBody(const std::string& text) {
  std::string lines = WithMailLineEnds(ToUtf8(text));
  if (IsPlain(lines)) return {"7bit", std::move(lines)};
  return {"quoted-printable", QuotedPrintable(lines)};
}

std::string FileNameParameters(const std::string& name) {
  std::string whole = OneLine(ToUtf8(name));
  whole.resize(Utf8Prefix(whole, kFileNameBytes));
  std::string plain = whole;
  // One sign for each character that not every reader knows.
  plain.erase(std::remove_if(plain.begin(), plain.end(), [](char c) { return (c & 0xC0) == 0x80; }),
              plain.end());
  for (char& c : plain) {
    if (c < 0 || c == '"' || c == '\\') c = '_';
  }
  std::string parameters = std::string(";") + kCrlf + " filename=\"" + plain + "\"";
  if (plain != whole) {
    parameters += std::string(";") + kCrlf + " filename*=UTF-8''" + PercentEncode(whole);
  }
  return parameters;
}

}  // namespace tvx
