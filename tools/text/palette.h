// Colours of a terminal (ECMA-48 SGR), or none.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdio>
#include <string>

namespace tvx::tool {

enum class Colour { Plain = 0, Bold = 1, Red = 31, Green = 32, Yellow = 33 };

// A terminal that can be drawn on.
bool IsTerminal(std::FILE* out);

class Palette {
 public:
  // In colour on a terminal that can be drawn on, unless NO_COLOR asks for none.
  static Palette For(std::FILE* out);

  explicit Palette(bool inColour) : inColour_(inColour) {}

  // The text in this colour. It must hold no line end: some pagers lose the colour there.
  std::string Paint(Colour colour, const std::string& text) const;

 private:
  bool inColour_;
};

}  // namespace tvx::tool
