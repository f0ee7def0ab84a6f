// A few lines at the lower end of what a terminal shows, drawn anew in place.
//
// No mode of the terminal outlives a drawing, and the cursor stands below the lines between two of
// them: however the process ends, there is nothing to restore. Only control sequences of ECMA-48
// and the line-wrap mode of DEC terminals are used.
//
// Threads: its owner's.
#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "text/palette.h"

namespace tvx::tool {

struct LiveLine {
  std::string text;  // printable
  std::optional<Colour> colour;
};

class LiveArea {
 public:
  // True for a terminal that can be drawn on.
  static bool Fits(std::FILE* out);

  // The file is not owned.
  explicit LiveArea(std::FILE* out) : out_(out), palette_(Palette::For(out)) {}

  // Lines that the terminal has no columns or rows for are cut. Nothing is written when all is as
  // it was.
  void Show(const std::vector<LiveLine>& lines);
  // Makes room for other output, above which nothing is left.
  void Erase();

 private:
  struct Size {
    std::size_t rows;
    std::size_t columns;
  };
  Size TerminalSize() const;
  std::string BackToTop(std::size_t columns) const;

  std::FILE* const out_;
  const Palette palette_;
  std::string shown_;
  std::vector<std::size_t> lengths_;  // of the lines shown, in columns
  std::size_t columns_ = 0;           // of the terminal then
};

}  // namespace tvx::tool
