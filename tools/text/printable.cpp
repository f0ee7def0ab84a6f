#include "text/printable.h"

#include <cstdio>

namespace tvx::tool {

std::string Printable(const std::string& text) {
  std::string printable;
  printable.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      printable += c;
      continue;
    }
    char escape[5];
    std::snprintf(escape, sizeof(escape), "\\x%02x", byte);
    printable += escape;
  }
  return printable;
}

}  // namespace tvx::tool
