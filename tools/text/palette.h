// Colours of a terminal (ECMA-48 SGR), or none.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdio>
#include <string>

namespace tvx::tool {

enum class Colour { Green, Yellow, Red, Bold };

class Palette {
 public:
  // In colour on a terminal, unless it is a dumb one or NO_COLOR asks for none.
  static Palette For(std::FILE* out);

  explicit Palette(bool inColour) : inColour_(inColour) {}

  // The text in this colour. It must hold no line end: some pagers lose the colour there.
  std::string Paint(Colour colour, const std::string& text) const;

 private:
  bool inColour_;
};

}  // namespace tvx::tool
