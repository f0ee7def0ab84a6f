#include "simulated_host/watch_printer.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <variant>

#include "simulated_host/event_printers.h"
#include "simulated_host/format.h"
#include "simulated_host/retry_tracker.h"
#include "text/printable.h"

namespace tvx::tool {
namespace {

constexpr std::size_t kLogLines = 8;
constexpr std::size_t kFaultLines = 3;

winsize SizeOf(std::FILE* terminal) {
  winsize size{};
  if (ioctl(fileno(terminal), TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    size.ws_row = 24;
    size.ws_col = 80;
  }
  return size;
}

// What fits into so many columns. Counts characters of UTF-8; wide ones are cut by the terminal,
// which does not wrap meanwhile.
std::string Cut(const std::string& text, std::size_t columns) {
  std::size_t end = 0;
  for (; end < text.size(); ++end) {
    const bool begins = (static_cast<unsigned char>(text[end]) & 0xC0) != 0x80;
    if (begins && columns-- == 0) break;
  }
  return text.substr(0, end);
}

// "66049" or, with a sub-channel, "66305/1".
std::string StreamName(std::uint32_t stream) {
  const std::uint32_t subChannel = stream >> 28;
  const std::string name = std::to_string(stream & 0x0FFFFFFF);
  return subChannel == 0 ? name : name + "/" + std::to_string(subChannel);
}

template <typename Range, typename Predicate>
std::size_t CountIf(const Range& range, const Predicate& predicate) {
  return static_cast<std::size_t>(std::count_if(range.begin(), range.end(), predicate));
}

Colour ColourOf(const LogLine& line) {
  constexpr std::uint32_t kWarning = 50;
  constexpr std::uint32_t kError = 75;
  return line.level >= kError     ? Colour::Red
         : line.level >= kWarning ? Colour::Yellow
                                  : Colour::Plain;
}

template <typename Lines>
void Keep(Lines& lines, std::size_t most, typename Lines::value_type line) {
  lines.push_back(std::move(line));
  if (lines.size() > most) lines.pop_front();
}

}  // namespace

WatchPrinter::WatchPrinter(std::FILE* out, double speed)
    : out_(out), speed_(speed), onTerminal_(IsTerminal(out)), palette_(Palette::For(out)) {
  // A picture is written at once, so that it is never seen by halves.
  if (onTerminal_) std::setvbuf(out_, nullptr, _IOFBF, 1u << 16);
}

void WatchPrinter::Print(double seconds, const HostEvent& event) {
  std::visit([this](const auto& it) { Follow(it); }, event);
  const auto* line = std::get_if<LogLine>(&event);
  const auto [label, text] = DescribeForPeople(event);
  const std::string head = Format("%9.3f  %-8s  ", seconds, label.c_str());
  if (std::holds_alternative<Fault>(event)) {
    Keep(lastFaults_, kFaultLines, {head + text, Colour::Red});
    if (onTerminal_) return;
    std::fprintf(out_, "%9.3f  %s  %s\n", seconds, label.c_str(), text.c_str());
    std::fflush(out_);
  } else if (label == "mail" || label == "reason") {
    const auto* end = std::get_if<TransferEnd>(&event);
    Keep(lastLog_, kLogLines,
         {head + text, end != nullptr && end->cause == nullptr ? Colour::Green : Colour::Red});
    if (!onTerminal_) std::fprintf(out_, "%s%s\n", head.c_str(), text.c_str());
  } else if (line != nullptr || label == "host") {
    Keep(lastLog_, kLogLines, {head + text, line == nullptr ? Colour::Plain : ColourOf(*line)});
  }
}

void WatchPrinter::Follow(const NotificationsAsked& asked) {
  asked_ += static_cast<int>(asked.profiles.size());
  notReported_.insert(asked.profiles.begin(), asked.profiles.end());
}

void WatchPrinter::Follow(const ProfileReport& report) {
  if (report.status == kStatusUnknown) return;
  if (report.status == kStatusDelivered) ++delivered_;
  if (report.status == kStatusFailed) ++failed_;
  const auto due = notReported_.find(report.profile);
  if (due != notReported_.end()) notReported_.erase(due);
}

void WatchPrinter::Follow(const RetryChange& change) {
  if (change.what == RetryChange::What::Queued) {
    queue_.insert(change.file);
  } else if (change.what != RetryChange::What::Tried) {
    queue_.erase(change.file);
  }
}

void WatchPrinter::Follow(const Launch& launch) {
  programs_[launch.request] = UploadedFile(launch);
}

void WatchPrinter::Follow(const FrameWrite& frame) {
  Stream& stream = streams_[frame.stream];
  ++stream.offered;
  if (frame.taken) ++stream.taken;
}

std::vector<std::string> WatchPrinter::Figures() const {
  std::uintmax_t held = 0;
  for (const auto& [id, stream] : streams_) held += stream.Held();
  return {
      Format("asked %d, not reported %zu, delivered %d, failed %d", asked_, notReported_.size(),
             delivered_, failed_),
      Format("queued %zu, retrying %zu", queue_.size(),
             CountIf(programs_, [this](const auto& it) { return queue_.count(it.second) != 0; })),
      Format("programs %zu, transfers %zu", programs_.size(),
             CountIf(programs_, [](const auto& it) { return !it.second.empty(); })),
      mailServer_,
      Format("faults %d", faults_),
      Format("frames held %ju", held),
  };
}

std::string WatchPrinter::DescribeStream(std::uint32_t id, const Stream& stream) {
  const auto expected = static_cast<std::uintmax_t>(stream.feed.expected);
  std::string text = Format("%-10s held %4ju  taken %6ju  refused %6ju  ", StreamName(id).c_str(),
                            stream.Held(), stream.taken, stream.offered - stream.taken) +
                     Printable(stream.feed.source);
  if (expected > 0) text += Format(", %ju of %ju frames fed", stream.offered, expected);
  return text + (stream.ended ? " (ended)" : "");
}

void WatchPrinter::Refresh(double seconds) {
  if (onTerminal_) {
    Draw(seconds);
  } else if (seconds >= nextLine_) {
    PrintLine(seconds);
  }
}

void WatchPrinter::Finish(double seconds) {
  nextLine_ = 0;
  Refresh(seconds);
}

void WatchPrinter::PrintLine(double seconds) {
  std::string line;
  for (const std::string& figure : Figures()) line += (line.empty() ? "" : "; ") + figure;
  const char* separator = " (";
  for (const auto& [id, stream] : streams_) {
    line += separator + StreamName(id) + ": " + std::to_string(stream.Held());
    separator = ", ";
  }
  if (!streams_.empty()) line += ")";
  if (line == shown_) return;
  std::fprintf(out_, "%9.3f  %s\n", seconds, line.c_str());
  std::fflush(out_);
  shown_ = line;
  nextLine_ = seconds + speed_;
}

void WatchPrinter::Draw(double seconds) {
  const std::string pace = speed_ == 1 ? "" : Format(", %g times as fast", speed_);
  std::vector<Line> lines = {
      {Format("NotifyPI in a simulated host, %.1f s", seconds) + pace, Colour::Bold}};
  for (const std::string& figure : Figures()) lines.push_back({"  " + figure});
  for (const auto& [id, stream] : streams_) lines.push_back({"  " + DescribeStream(id, stream)});
  lines.insert(lines.end(), lastFaults_.begin(), lastFaults_.end());
  lines.emplace_back();
  lines.insert(lines.end(), lastLog_.begin(), lastLog_.end());

  const winsize size = SizeOf(out_);
  if (lines.size() >= size.ws_row) lines.resize(size.ws_row - 1u);
  std::string picture;
  for (const Line& line : lines) {
    picture += palette_.Paint(line.colour, Cut(line.text, size.ws_col)) + "\x1b[K\n";
  }
  // A terminal that has become narrower may have broken the lines of the last picture.
  const bool isNew = size.ws_col != columns_ && rows_ > 0;
  const std::string top = isNew ? "\x1b[H\x1b[2J" : rows_ > 0 ? Format("\r\x1b[%zuA", rows_) : "\r";
  std::fputs(("\x1b[?7l" + top + picture + "\x1b[J\x1b[?7h").c_str(), out_);
  std::fflush(out_);
  rows_ = lines.size();
  columns_ = size.ws_col;
}

}  // namespace tvx::tool
