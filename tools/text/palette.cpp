#include "text/palette.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace tvx::tool {
namespace {

const char* Code(Colour colour) {
  switch (colour) {
    case Colour::Green:
      return "32";
    case Colour::Yellow:
      return "33";
    case Colour::Red:
      return "31";
    case Colour::Bold:
      return "1";
  }
  return "0";
}

}  // namespace

Palette Palette::For(std::FILE* out) {
  const char* refused = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  const bool wanted = (refused == nullptr || *refused == '\0') && terminal != nullptr &&
                      std::strcmp(terminal, "dumb") != 0;
  return Palette(wanted && ::isatty(::fileno(out)) == 1);
}

std::string Palette::Paint(Colour colour, const std::string& text) const {
  if (!inColour_ || text.empty()) return text;
  return std::string("\033[") + Code(colour) + "m" + text + "\033[0m";
}

}  // namespace tvx::tool
