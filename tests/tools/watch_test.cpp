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

constexpr std::uint32_t kStream = 0x10010201;

void Play(WatchPrinter& printer) {
  const std::vector<std::int32_t> profiles = {1, 1, 2};
  // One frame comes back before its Write has returned.
  for (const HostEvent& event : std::initializer_list<HostEvent>{
           NotificationsAsked{profiles}, FrameReturn{kStream, 100},
           FrameWrite{kStream, 100, false, true}, FrameWrite{kStream, 100, false, true},
           FrameWrite{kStream, 100, false, false}, Launch{1, {"./curl", "-T", "first"}},
           ProgramEnd{1, "./curl", 0, 0},
           RetryChange{RetryChange::What::Queued, "first", "", 1, 0, 1},
           Launch{2, {"./curl", "-T", "first"}}, Launch{3, {"./curl", "-V"}},
           ProfileReport{1, kStatusDelivered, 0}, ProfileReport{2, kStatusUnknown, 0},
           MailServerChange{MailServerChange::What::Down}, Fault{"this and\x1b that"},
           LogLine{75, std::string(80, 'x')}}) {
    printer.Print(6, event);
  }
}

TEST(WatchPrinter, PrintsAChangeOnceASecondOfTheWorldAndFaultsAtOnce) {
  testing::internal::CaptureStdout();
  WatchPrinter printer(stdout, 10);
  for (const double seconds : {0.0, 9.9, 10.0, 30.0}) {
    printer.Refresh(seconds);
    if (seconds == 0) Play(printer);
  }
  printer.Print(31, ProfileReport{2, kStatusFailed, 0});
  printer.Finish(31);
  const std::string rest =
      "; queued 1, retrying 1; programs 2, transfers 1; mail server down; faults 1; frames held 1 "
      "(66049/1: 1)\n";
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "    0.000  asked 0, not reported 0, delivered 0, failed 0; queued 0, retrying 0; "
            "programs 0, transfers 0; mail server not the host's; faults 0; frames held 0\n"
            "    6.000  FAULT  this and\\x1b that\n"
            "   10.000  asked 3, not reported 2, delivered 1, failed 0" +
                rest + "   31.000  asked 3, not reported 1, delivered 1, failed 1" + rest);
}

TEST(WatchPrinter, DrawsInPlace) {
  setenv("TERM", "xterm", 1);
  int ours = -1;
  int theirs = -1;
  const winsize size{24, 60, 0, 0};
  ASSERT_EQ(openpty(&ours, &theirs, nullptr, nullptr, &size), 0);
  std::FILE* terminal = fdopen(theirs, "w");
  WatchPrinter printer(terminal, 1);
  Play(printer);
  // A drawing ends with what takes its mode back.
  const auto draw = [&] {
    printer.Refresh(1);
    std::string shown;
    char byte = 0;
    while (!testing::Value(shown, testing::EndsWith("\x1b[?7h"))) {
      if (read(ours, &byte, 1) != 1) break;
      shown += byte;
    }
    return shown;
  };
  const std::string first = draw();
  EXPECT_THAT(first, testing::AllOf(testing::StartsWith("\x1b[?7l"),
                                    testing::HasSubstr("66049/1    held    1"),
                                    testing::Not(testing::HasSubstr(std::string(41, 'x')))));
  const auto rows = std::count(first.begin(), first.end(), '\n');
  EXPECT_THAT(draw(), testing::StartsWith("\x1b[?7l\r\x1b[" + std::to_string(rows) + "A"));
  std::fclose(terminal);
  close(ours);
}

}  // namespace
}  // namespace tvx::tool
