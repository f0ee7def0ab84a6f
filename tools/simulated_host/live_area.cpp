#include "simulated_host/live_area.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace tvx::tool {
namespace {

constexpr const char* kNoWrap = "\x1b[?7l";
constexpr const char* kWrap = "\x1b[?7h";
constexpr const char* kEraseLine = "\x1b[K";
constexpr const char* kEraseBelow = "\x1b[J";

// Bytes of a text that fill so many columns at most, and how many it fills. Counts characters of
// UTF-8; wide ones are cut by the terminal, which does not wrap meanwhile.
std::size_t Fit(const std::string& text, std::size_t columns, std::size_t& filled) {
  filled = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if ((static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) continue;
    if (filled == columns) return at;
    ++filled;
  }
  return text.size();
}

}  // namespace

bool LiveArea::Fits(std::FILE* out) {
  const char* terminal = std::getenv("TERM");
  return terminal != nullptr && *terminal != '\0' && std::strcmp(terminal, "dumb") != 0 &&
         isatty(fileno(out)) == 1;
}

LiveArea::Size LiveArea::TerminalSize() const {
  winsize size{};
  if (ioctl(fileno(out_), TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    return {24, 80};
  }
  return {size.ws_row, size.ws_col};
}

// To where the area begins. In a terminal that has become narrower its lines fill more rows.
std::string LiveArea::BackToTop(std::size_t columns) const {
  std::size_t rows = 0;
  for (const std::size_t length : lengths_) {
    rows += columns < columns_ ? std::max<std::size_t>(1, (length + columns - 1) / columns) : 1;
  }
  return rows == 0 ? "\r" : "\r\x1b[" + std::to_string(rows) + "A";
}

void LiveArea::Show(const std::vector<LiveLine>& lines) {
  const Size size = TerminalSize();
  const std::size_t count = std::min(lines.size(), size.rows - 1);
  std::string drawing;
  std::vector<std::size_t> lengths;
  for (std::size_t i = 0; i < count; ++i) {
    std::size_t filled = 0;
    const std::string text = lines[i].text.substr(0, Fit(lines[i].text, size.columns, filled));
    drawing += lines[i].colour ? palette_.Paint(*lines[i].colour, text) : text;
    drawing += std::string(kEraseLine) + "\n";
    lengths.push_back(filled);
  }
  if (drawing == shown_ && size.columns == columns_) return;
  const std::string all = kNoWrap + BackToTop(size.columns) + drawing + kEraseBelow + kWrap;
  std::fwrite(all.data(), 1, all.size(), out_);
  std::fflush(out_);
  shown_ = std::move(drawing);
  lengths_ = std::move(lengths);
  columns_ = size.columns;
}

void LiveArea::Erase() {
  if (lengths_.empty()) return;
  const std::string all = BackToTop(TerminalSize().columns) + kEraseBelow;
  std::fwrite(all.data(), 1, all.size(), out_);
  std::fflush(out_);
  shown_.clear();
  lengths_.clear();
}

}  // namespace tvx::tool
