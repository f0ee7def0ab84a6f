// --watch follows what the timeline records, and leaves the terminal as it was.
#include "simulated_host/watch_printer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace tvx::tool {
namespace {

using testing::HasSubstr;

void Play(WatchPrinter& printer) {
  const std::vector<std::int32_t> profiles = {1, 1, 2};
  printer.Print(1, NotificationsAsked{profiles});
  printer.Print(1, FeedStart{0x10010201, "gate.mp4", 600});
  // One frame comes back before its Write has returned.
  printer.Print(1, FrameReturn{0x10010201, 100});
  for (const bool taken : {true, true, false}) {
    printer.Print(2, FrameWrite{0x10010201, 100, false, taken});
  }
  printer.Print(3, Launch{1, {"./curl", "-T", "first"}});
  printer.Print(3, ProgramEnd{1, "./curl", 0, 0});
  printer.Print(3, RetryChange{RetryChange::What::Queued, "first", "", 1, 0, 1});
  printer.Print(4, Launch{2, {"./curl", "-T", "first"}});
  printer.Print(4, Launch{3, {"./curl", "-V"}});
  printer.Print(5, ProfileReport{1, kStatusDelivered, 0});
  printer.Print(5, ProfileReport{2, kStatusUnknown, 0});
  printer.Print(5, MailServerChange{MailServerChange::What::Down});
  printer.Print(6, Fault{"this and\x1b that"});
}

TEST(WatchPrinter, PrintsAChangeOnceASecondOfTheWorldAndFaultsAtOnce) {
  testing::internal::CaptureStdout();
  WatchPrinter printer(stdout, 10);
  printer.Refresh(0);
  Play(printer);
  printer.Refresh(9.9);
  printer.Refresh(10);
  printer.Refresh(30);
  printer.Print(31, ProfileReport{2, kStatusFailed, 0});
  printer.Finish(31);
  const auto state = [](const char* counts) {
    return std::string("  asked 3, ") + counts +
           "; queued 1, retrying 1; programs 2, transfers 1; mail server down; faults 1; frames "
           "held 1 (66049/1: 1)\n";
  };
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "    0.000  asked 0, not reported 0, delivered 0, failed 0; queued 0, retrying 0; "
            "programs 0, transfers 0; mail server not the host's; faults 0; frames held 0\n"
            "    6.000  FAULT  this and\\x1b that\n"
            "   10.000" +
                state("not reported 2, delivered 1, failed 0") + "   31.000" +
                state("not reported 1, delivered 1, failed 1"));
}

TEST(WatchPrinter, DrawsInPlace) {
  setenv("TERM", "xterm", 1);
  int ours = -1;
  int theirs = -1;
  const winsize size{24, 60, 0, 0};
  ASSERT_EQ(openpty(&ours, &theirs, nullptr, nullptr, &size), 0);
  std::FILE* terminal = fdopen(theirs, "w");
  WatchPrinter printer(terminal, 1);
  const auto draw = [&] {
    printer.Refresh(1);
    std::string shown;
    char part[256];
    ssize_t length = 1;
    while (length > 0 && !testing::Value(shown, testing::EndsWith("\x1b[?7h"))) {
      length = read(ours, part, sizeof(part));
      shown.append(part, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    }
    return shown;
  };
  Play(printer);
  printer.Print(6, LogLine{75, std::string(80, 'x')});
  const std::string first = draw();
  // A drawing ends with what takes its mode back.
  EXPECT_THAT(first,
              testing::AllOf(testing::StartsWith("\x1b[?7l"), HasSubstr("66049/1    held    1"),
                             testing::Not(HasSubstr(std::string(41, 'x')))));
  const auto rows = std::count(first.begin(), first.end(), '\n');
  EXPECT_THAT(draw(), testing::StartsWith("\x1b[?7l\r\x1b[" + std::to_string(rows) + "A"));
  std::fclose(terminal);
  close(ours);
}

}  // namespace
}  // namespace tvx::tool
