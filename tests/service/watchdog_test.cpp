#include "service/watchdog.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/fake_host.h"

namespace tvx {
namespace {

TEST(Watchdog, SendsAnEventEachIntervalUntilTheWorkerEnds) {
  test::FakeHost host;
  host.Answer(HostCommand::Watchdog, 3, 7);
  Watchdog watchdog(&test::FakeHost::Entry);
  testing::internal::CaptureStderr();
  std::thread thread([&] { watchdog.Run(boost::chrono::milliseconds(5)); });
  EXPECT_TRUE(host.WaitFor([&] { return host.WatchdogEvents() >= 2; }));
  EXPECT_FALSE(watchdog.IsStopped());
  watchdog.MarkStopped();
  thread.join();
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_EQ(told.rfind("NotifyPI: watch dog event ret 3 error 7NotifyPI: watch dog event", 0), 0u);
  EXPECT_TRUE(host.MalformedRequests().empty());
}

TEST(Watchdog, SendsNothingBeforeItsIntervalIsOver) {
  test::FakeHost host;
  Watchdog watchdog(&test::FakeHost::Entry);
  std::thread thread([&] { watchdog.Run(boost::chrono::hours(1)); });
  watchdog.MarkStopped();  // wakes it, early or before it waits
  thread.join();
  watchdog.Run(boost::chrono::hours(1));  // stopped already: returns at once
  EXPECT_EQ(host.WatchdogEvents(), 0);
}

}  // namespace
}  // namespace tvx
