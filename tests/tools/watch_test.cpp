// --watch follows what the timeline records, and leaves the terminal as it was.
#include "simulated_host/watch_printer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <string>

namespace tvx::tool {
namespace {

TEST(WatchPrinter, FollowsTheRunAndLeavesTheTerminalAsItWas) {
  int ends[2];
  const winsize size{24, 60, 0, 0};
  ASSERT_EQ(openpty(&ends[0], &ends[1], nullptr, nullptr, &size), 0);
  testing::internal::CaptureStdout();
  std::FILE* terminal = fdopen(ends[1], "w");
  WatchPrinter onTerminal(terminal, 1), inFile(stdout, 1);
  const std::vector<std::int32_t> profiles = {1, 1, 2};
  const std::uint32_t stream = 0x10010201;
  // One frame comes back before its Write has returned.
  for (const HostEvent& event : std::initializer_list<HostEvent>{
           NotificationsAsked{profiles}, FrameReturn{stream, 9}, FrameWrite{stream, 9, false, true},
           FrameWrite{stream, 9, false, true}, FrameWrite{stream, 9, false, false},
           Launch{1, {"./curl", "-T", "first"}}, ProgramEnd{1, "./curl", 0, 0},
           RetryChange{RetryChange::What::Queued, "first", "", 1, 0, 1},
           Launch{2, {"./curl", "-T", "first"}}, Launch{3, {"./curl", "-V"}},
           ProfileReport{1, kStatusDelivered, 0}, ProfileReport{2, kStatusUnknown, 0},
           Fault{"this and\x1b that"}, LogLine{75, std::string(80, 'x')}}) {
    onTerminal.Print(6, event);
    inFile.Print(6, event);
  }
  for (const double seconds : {7.0, 7.9, 9.0}) inFile.Refresh(seconds);  // it changes once
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "    6.000  FAULT  this and\\x1b that\n"
            "    7.000  asked 3, not reported 2, delivered 1, failed 0; queued 1, retrying 1; "
            "programs 2, transfers 1; mail server not the host's; faults 1; frames held 1 "
            "(66049/1: 1)\n");
  onTerminal.Refresh(7);
  std::array<char, 4096> shown{};
  ASSERT_GT(read(ends[0], shown.data(), shown.size() - 1), 0);
  EXPECT_THAT(shown.data(), testing::MatchesRegex("\x1b\\[\\?7l(.|\n)*66049/1    held    1(.|\n)*"
                                                  "[^x]x{39}[^x](.|\n)*\x1b\\[J\x1b\\[\\?7h"));
  std::fclose(terminal);
  close(ends[0]);
}

}  // namespace
}  // namespace tvx::tool
