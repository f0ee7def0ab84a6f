// Texts of unknown length and content, made fit for a line: cut without leaving half a character,
// and without what would end the line or speak to a terminal.
// Threads: any; nothing is shared.
#pragma once

#include <cstddef>
#include <string>

namespace tvx {

// How many bytes of a text make its longest beginning of at most so many bytes that does not end
// within a UTF-8 character. Of a text that is no UTF-8 up to three bytes less are taken.
inline std::size_t Utf8Prefix(const std::string& text, std::size_t limit) {
  if (text.size() <= limit) return text.size();
  std::size_t end = limit;
  const auto continues = [&](std::size_t at) { return (text[at] & 0xC0) == 0x80; };
  while (end > 0 && limit - end < 3 && continues(end)) --end;
  return continues(end) ? limit : end;
}

// A blank in place of each control character.
inline std::string OneLine(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  return text;
}

}  // namespace tvx
