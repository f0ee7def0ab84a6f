#include "text/palette.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace tvx::tool {
namespace {

std::string_view Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace

bool IsTerminal(std::FILE* out) {
  const std::string_view kind = Environment("TERM");
  return !kind.empty() && kind != "dumb" && ::isatty(::fileno(out)) == 1;
}

Palette Palette::For(std::FILE* out) {
  return Palette(Environment("NO_COLOR").empty() && IsTerminal(out));
}

std::string Palette::Paint(Colour colour, const std::string& text) const {
  if (!inColour_ || text.empty() || colour == Colour::Plain) return text;
  return "\033[" + std::to_string(static_cast<int>(colour)) + "m" + text + "\033[0m";
}

}  // namespace tvx::tool
