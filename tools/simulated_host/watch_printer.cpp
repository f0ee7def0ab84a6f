#include "simulated_host/watch_printer.h"

#include <algorithm>
#include <variant>
#include <vector>

#include "simulated_host/format.h"
#include "simulated_host/human_printer.h"

namespace tvx::tool {
namespace {

constexpr std::size_t kLogLines = 8;
constexpr std::size_t kFaultLines = 3;

const char* Name(const std::optional<MailServerChange::What>& mailServer) {
  if (!mailServer) return "not the host's";
  switch (*mailServer) {
    case MailServerChange::What::Starting:
      return "starting";
    case MailServerChange::What::Up:
      return "up";
    case MailServerChange::What::Down:
      return "down";
    case MailServerChange::What::Ended:
      return "ended by itself";
  }
  return "";
}

std::optional<Colour> ColourOf(const std::optional<MailServerChange::What>& mailServer) {
  if (!mailServer) return std::nullopt;
  return *mailServer == MailServerChange::What::Up ? Colour::Green : Colour::Yellow;
}

// What goes to the lines below the figures.
bool IsLogged(const Happening& happening) {
  return std::holds_alternative<LogLine>(happening) ||
         std::holds_alternative<HostAction>(happening) ||
         std::holds_alternative<MailServerChange>(happening);
}

std::optional<Colour> ColourOf(const Happening& happening) {
  constexpr std::uint32_t kError = 75;
  constexpr std::uint32_t kWarning = 50;
  if (std::holds_alternative<Fault>(happening)) return Colour::Red;
  const auto* line = std::get_if<LogLine>(&happening);
  if (line == nullptr || line->level < kWarning) return std::nullopt;
  return line->level >= kError ? Colour::Red : Colour::Yellow;
}

void Keep(std::deque<LiveLine>& lines, std::size_t most, double seconds,
          const Happening& happening) {
  const HumanLine line = DescribeForPeople(happening);
  lines.push_back(
      {Format("%9.3f  %-8s  ", seconds, line.label.c_str()) + line.text, ColourOf(happening)});
  if (lines.size() > most) lines.pop_front();
}

// "66049" or, with a sub-channel, "66305/1".
std::string StreamName(std::uint32_t stream) {
  const std::uint32_t subChannel = stream >> 28;
  if (subChannel == 0) return std::to_string(stream);
  return std::to_string(stream & 0x0FFFFFFF) + "/" + std::to_string(subChannel);
}

}  // namespace

void WatchScreen::Print(double seconds, const Happening& happening) {
  status_.Follow(seconds, happening);
  if (IsLogged(happening)) Keep(log_, kLogLines, seconds, happening);
  if (std::holds_alternative<Fault>(happening)) Keep(faults_, kFaultLines, seconds, happening);
}

void WatchScreen::Observe(double /*seconds*/, const Crossing& crossing) {
  status_.Follow(crossing);
}

void WatchScreen::Refresh(double seconds) {
  std::vector<LiveLine> lines;
  const auto add = [&lines](std::string text, std::optional<Colour> colour = std::nullopt) {
    lines.push_back({std::move(text), colour});
  };
  add(Format("NotifyPI in a simulated host, %.1f s", seconds) +
          (speed_ == 1 ? "" : Format(", %g times as fast", speed_)),
      Colour::Bold);
  add(std::string("Mail server    ") + Name(status_.MailServer()), ColourOf(status_.MailServer()));
  add(Format("Notifications  %d asked for: %zu not reported, %d delivered, %d failed",
             status_.Asked(), status_.NotReported(), status_.Delivered(), status_.Failed()));
  add("               not reported: waiting for video, ready, being sent, or not due");
  add(Format("Retry queue    %zu queued, %zu of them being tried again", status_.Queued(),
             status_.Retrying()),
      status_.Queued() > 0 ? std::optional(Colour::Yellow) : std::nullopt);
  add(Format("Programs       %zu running, %zu of them sending mail", status_.Programs(),
             status_.Transfers()));
  add(Format("Faults         %d", status_.Faults()),
      status_.Faults() > 0 ? std::optional(Colour::Red) : std::nullopt);
  lines.insert(lines.end(), faults_.begin(), faults_.end());
  AddStreams(lines, seconds);
  add("");
  lines.insert(lines.end(), log_.begin(), log_.end());
  area_.Show(lines);
}

void WatchScreen::AddStreams(std::vector<LiveLine>& lines, double seconds) const {
  if (status_.Streams().empty()) return;
  lines.push_back({"Stream           held    taken  refused  returned  shows", Colour::Bold});
  for (const auto& [id, stream] : status_.Streams()) {
    lines.push_back({Format("%-12s %8llu %8llu %8llu  %8llu  ", StreamName(id).c_str(),
                            static_cast<unsigned long long>(stream.Held()),
                            static_cast<unsigned long long>(stream.taken),
                            static_cast<unsigned long long>(stream.offered - stream.taken),
                            static_cast<unsigned long long>(stream.returned)) +
                         DescribeForPeople(HostAction{stream.feed.source}).text +
                         (stream.feeding ? "" : " (ended)"),
                     std::nullopt});
  }
  const FeedProgress progress = ProgressOfFiles(status_, seconds, speed_);
  if (progress.files > 0) lines.push_back({Describe(progress), std::nullopt});
}

void WatchLines::Print(double seconds, const Happening& happening) {
  status_.Follow(seconds, happening);
  if (!std::holds_alternative<Fault>(happening)) return;
  const HumanLine line = DescribeForPeople(happening);
  std::fprintf(out_, "%9.3f  %s  %s\n", seconds, line.label.c_str(), line.text.c_str());
  std::fflush(out_);
}

void WatchLines::Observe(double /*seconds*/, const Crossing& crossing) {
  status_.Follow(crossing);
}

void WatchLines::Refresh(double seconds) {
  if (seconds >= nextTime_) PrintIfChanged(seconds);
}

void WatchLines::PrintIfChanged(double seconds) {
  std::string text = Format(
      "asked %d, not reported %zu, delivered %d, failed %d; queued %zu, retrying %zu; "
      "programs %zu, transfers %zu; mail server %s; faults %d; frames held %llu",
      status_.Asked(), status_.NotReported(), status_.Delivered(), status_.Failed(),
      status_.Queued(), status_.Retrying(), status_.Programs(), status_.Transfers(),
      Name(status_.MailServer()), status_.Faults(),
      static_cast<unsigned long long>(status_.Held()));
  const char* separator = " (";
  for (const auto& [id, stream] : status_.Streams()) {
    text += separator + StreamName(id) + ": " + std::to_string(stream.Held());
    separator = ", ";
  }
  if (!status_.Streams().empty()) text += ")";
  if (text == last_) return;
  std::fprintf(out_, "%9.3f  %s\n", seconds, text.c_str());
  std::fflush(out_);
  last_ = std::move(text);
  nextTime_ = seconds + speed_;
}

std::unique_ptr<TimelinePrinter> MakeWatchPrinter(std::FILE* out, double speed) {
  if (LiveArea::Fits(out)) return std::make_unique<WatchScreen>(out, speed);
  return std::make_unique<WatchLines>(out, speed);
}

}  // namespace tvx::tool
