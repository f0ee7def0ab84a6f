#include "text/printable.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace tvx::tool {
namespace {

// How many bytes at the begin of the text are one character of UTF-8 (RFC 3629); 0 when none are.
// The character is then set.
std::size_t ReadCharacter(std::string_view text, std::uint32_t& character) {
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const std::size_t length = byte(0) < 0x80 ? 1 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
  const bool isContinuation = byte(0) >= 0x80 && byte(0) < 0xC0;
  if (isContinuation || byte(0) >= 0xF8 || length > text.size()) return 0;
  character = length == 1 ? byte(0) : byte(0) & (0x7Fu >> length);
  for (std::size_t at = 1; at < length; ++at) {
    if ((byte(at) & 0xC0u) != 0x80) return 0;
    character = (character << 6) | (byte(at) & 0x3Fu);
  }
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
  return character < kSmallest[length] || character > 0x10FFFF || isSurrogate ? 0 : length;
}

// Controls (C0, DEL, C1), what changes the direction of a text, and separators of lines.
bool IsHarmful(std::uint32_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x61C || (c >= 0x200E && c <= 0x200F) ||
         (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

}  // namespace

bool IsUtf8(const std::string& text) {
  for (std::string_view rest = text; !rest.empty();) {
    std::uint32_t character = 0;
    const std::size_t length = ReadCharacter(rest, character);
    if (length == 0) return false;
    rest.remove_prefix(length);
  }
  return true;
}

std::string Printable(const std::string& text) {
  std::string printable;
  printable.reserve(text.size());
  for (std::string_view rest = text; !rest.empty();) {
    std::uint32_t character = 0;
    const std::size_t length = ReadCharacter(rest, character);
    const std::string_view bytes = rest.substr(0, std::max<std::size_t>(length, 1));
    rest.remove_prefix(bytes.size());
    if (length != 0 && !IsHarmful(character)) {
      printable += bytes;
      continue;
    }
    for (const char byte : bytes) {
      char escape[5];
      std::snprintf(escape, sizeof(escape), "\\x%02x", static_cast<unsigned char>(byte));
      printable += escape;
    }
  }
  return printable;
}

}  // namespace tvx::tool
