#include "simulated_host/test_printer.h"

#include <utility>
#include <variant>

#include "simulated_host/format.h"
#include "simulated_host/retry_tracker.h"
#include "text/printable.h"

namespace tvx::tool {

TestPrinter::TestPrinter(std::FILE* out, std::vector<std::string> servers, bool verbose)
    : out_(out), servers_(std::move(servers)), verbose_(verbose), palette_(Palette::For(out)) {}

void TestPrinter::Print(double /*seconds*/, const HostEvent& event) {
  std::visit([this](const auto& it) { Show(it); }, event);
  std::fflush(out_);
}

void TestPrinter::Line(Colour colour, const std::string& head, const std::string& text) {
  std::fprintf(out_, "  %s%s\n", palette_.Paint(colour, Format("%-8s", head.c_str())).c_str(),
               Printable(text).c_str());
}

// Each server is tried once, in order.
void TestPrinter::Show(const Launch& launch) {
  if (UploadedFile(launch).empty()) return;
  const std::string name = attempts_ < servers_.size() ? servers_[attempts_] : std::string();
  ++attempts_;
  std::fprintf(out_, "%s\n",
               palette_
                   .Paint(Colour::Bold, "server \"" + Printable(name) + "\", " +
                                            Printable(TransferDialogue(launch.arguments).Server()))
                   .c_str());
}

void TestPrinter::Show(const LaunchFailure& failure) {
  if (attempts_ > 0) Line(Colour::Red, "failed", failure.program + " does not start");
}

void TestPrinter::Show(const TransferEnd& end) {
  for (const TransferStage& stage : end.dialogue.Stages()) {
    Line(stage.passed ? Colour::Green : Colour::Red, stage.passed ? "ok" : "failed",
         Format("%-13s ", stage.name.c_str()) + stage.reply);
  }
  if (verbose_) {
    for (const std::string& line : end.dialogue.Lines()) Line(Colour::Plain, "", line);
  }
  if (end.cause != nullptr) ShowCause(*end.cause);
}

void TestPrinter::Show(const LogLine& line) {
  if (verbose_) Line(Colour::Plain, "log", line.text);
}

void TestPrinter::Show(const Fault& fault) {
  Line(Colour::Red, "FAULT", fault.text);
}

void TestPrinter::ShowCause(const FailureCause& cause) {
  Line(Colour::Yellow, "cause", cause.cause);
  Line(Colour::Yellow, "cure", cause.cure);
}

}  // namespace tvx::tool
