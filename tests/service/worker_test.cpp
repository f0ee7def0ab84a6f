#include "service/worker.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <boost/thread/exceptions.hpp>

#include <atomic>
#include <chrono>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "service/watchdog.h"
#include "service/work_queue.h"
#include "support/fake_host.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

WorkQueue::Item Notification(std::int32_t number) {
  auto item = std::make_shared<NotifyWorkItem>();
  item->eventSeconds = number;
  return item;
}

TEST(WorkQueue, TheStopItemOvertakesEverything) {
  const auto now = boost::chrono::milliseconds(0);
  WorkQueue queue;
  queue.Enqueue({Notification(1), Notification(2)});
  queue.Enqueue({});
  queue.Enqueue({Notification(3)});
  queue.EnqueueStop();
  EXPECT_EQ(queue.Take()->kind, NotifyWorkItem::Kind::Stop);
  EXPECT_EQ(queue.Take()->eventSeconds, 1);
  EXPECT_EQ(queue.TakeWithin(now)->eventSeconds, 2);
  EXPECT_EQ(queue.Take()->eventSeconds, 3);
  EXPECT_EQ(queue.TakeWithin(boost::chrono::milliseconds(1)), nullptr);
  queue.EnqueueStop();
  EXPECT_EQ(queue.TakeWithin(now)->kind, NotifyWorkItem::Kind::Stop);
}

TEST(WorkQueue, WakesItsWorkerForEveryItem) {
  constexpr int kItems = 2000;
  WorkQueue queue;
  std::thread producers[2];
  for (std::thread& producer : producers) {
    producer = std::thread([&] {
      for (int i = 0; i < kItems; ++i) queue.Enqueue({Notification(i)});
    });
  }
  for (int taken = 0; taken < 2 * kItems; ++taken) {
    // Both ways to wait see the same items.
    const auto item = taken % 2 == 0 ? queue.Take() : queue.TakeWithin(boost::chrono::seconds(10));
    ASSERT_NE(item, nullptr);
  }
  for (std::thread& producer : producers) producer.join();
  // And for the stop, which may come to one that waits.
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    queue.EnqueueStop();
  });
  EXPECT_EQ(queue.Take()->kind, NotifyWorkItem::Kind::Stop);
  stopper.join();
}

// Runs out of memory, or of locks, at the first reports.
class FailingOwner : public IStatusReceiver {
 public:
  void ReportStatus(std::int32_t profileId, ProfileStatus status) override {
    if (brokenLock) throw boost::lock_error();
    if (failures-- > 0) throw std::bad_alloc();
    reported.emplace_back(profileId, status);
  }

  int failures = 0;
  bool brokenLock = false;
  std::vector<std::pair<std::int32_t, ProfileStatus>> reported;
};

class WorkerTest : public testing::Test {
 protected:
  WorkerTest() {
    for (const std::int32_t id : {1, 2}) {
      config_->profiles[id].ID = id;
      config_->profiles[id].description = id == 1 ? "Gate" : "Yard";
      items_.push_back(std::make_shared<NotifyWorkItem>());
      items_.back()->config = config_;
      items_.back()->profile = &config_->profiles.at(id);
    }
    auto stop = std::make_shared<NotifyWorkItem>();
    stop->kind = NotifyWorkItem::Kind::Stop;
    items_.push_back(stop);
  }

  // Both notifications, which fail for want of addresses, and the stop behind them.
  void Run() {
    WorkQueue queue;
    queue.Enqueue(items_);
    RunWorkerLoop(queue, owner_, channel_, &test::FakeHost::Entry, [&](const NotifyWorkItem*) {
      return WorkerConfig{config_, false};
    });
  }

  const test::TemporaryFolder folder_;
  const test::FakeHost host_;
  const std::shared_ptr<NotifyConfig> config_ = std::make_shared<NotifyConfig>();
  WorkQueue::Items items_;
  FailingOwner owner_;
  ProcessChannel channel_;
};

TEST_F(WorkerTest, OneBadNotificationIsLoggedAndReportedAndTheNextOneWorks) {
  using Reports = decltype(FailingOwner::reported);
  const std::pair<std::int32_t, ProfileStatus> gate{1, ProfileStatus::Failed};
  const std::pair<std::int32_t, ProfileStatus> yard{2, ProfileStatus::Failed};
  const test::LogLine line{75, "Failed to process notification of profile Gate: std::bad_alloc"};
  // A report that fails is tried once more.
  const std::pair<int, Reports> rows[] = {{0, {gate, yard}}, {1, {gate, yard}}, {2, {yard}}};
  for (const auto& [failures, reported] : rows) {
    owner_.failures = failures;
    owner_.reported.clear();
    const int before = host_.Logged(line.text);
    Run();
    EXPECT_EQ(owner_.reported, reported);
    EXPECT_EQ(host_.Logged(line.text) - before, failures);
    EXPECT_EQ(host_.Logged("Failed to process notification of profile Yard: std::bad_alloc"), 0);
  }
}

TEST_F(WorkerTest, BeginsWithACleanSpoolAndEndsWithABrokenLock) {
  mkdir("data", 0700);
  test::WriteFile("data/notify-mail-1-2-3-4", "left over");
  items_.pop_front();
  items_.pop_front();
  Run();
  EXPECT_FALSE(test::FileExists("data/notify-mail-1-2-3-4"));
  items_.push_front(Notification(1));
  items_.front()->config = config_;
  items_.front()->profile = &config_->profiles.at(1);
  owner_.brokenLock = true;
  EXPECT_THROW(Run(), boost::lock_error);
}

TEST_F(WorkerTest, UsesTheConfigurationOfTheMomentItIsWoken) {
  WorkQueue queue;
  std::atomic<int> asked{0};
  std::thread worker([&] {
    RunWorkerLoop(queue, owner_, channel_, &test::FakeHost::Entry, [&](const NotifyWorkItem*) {
      ++asked;
      return WorkerConfig{config_, false};
    });
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(asked, 0) << "not before it waits";
  queue.Enqueue(items_);
  worker.join();
  EXPECT_EQ(asked, 3) << "once a turn";
}

TEST(Watchdog, SendsAnEventEachIntervalUntilTheWorkerEnds) {
  const std::pair<int, std::uint32_t> answers[] = {{3, 7}, {0, 7}, {3, 0}, {0, 0}};
  for (const auto& [returned, status] : answers) {
    test::FakeHost host;
    host.Answer(HostCommand::Watchdog, returned, status);
    Watchdog watchdog(&test::FakeHost::Entry);
    testing::internal::CaptureStderr();
    std::thread thread([&] { watchdog.Run(boost::chrono::milliseconds(5)); });
    EXPECT_TRUE(host.WaitFor([&] { return host.WatchdogEvents() >= 2; }));
    EXPECT_FALSE(watchdog.IsStopped());
    watchdog.MarkStopped();
    thread.join();
    const std::string line = "NotifyPI: watch dog event ret " + std::to_string(returned) +
                             " error " + std::to_string(status);
    const std::string told = testing::internal::GetCapturedStderr();
    if (returned == 0 && status == 0) {
      EXPECT_EQ(told, "");
    } else {
      EXPECT_EQ(told.substr(0, 2 * line.size()), line + line);
    }
    EXPECT_TRUE(host.Problems().empty());
  }
}

TEST(Watchdog, SendsNothingBeforeItsIntervalIsOver) {
  test::FakeHost host;
  Watchdog watchdog(&test::FakeHost::Entry);
  const auto start = std::chrono::steady_clock::now();
  std::thread usual([&] { watchdog.Run(); });
  std::thread longer([&] { watchdog.Run(boost::chrono::hours(1)); });
  EXPECT_FALSE(host.WaitFor([&] { return host.WatchdogEvents() > 0; }) &&
               std::chrono::steady_clock::now() - start < std::chrono::seconds(10));
  EXPECT_TRUE(host.WaitFor([&] { return host.WatchdogEvents() == 1; })) << "after ten seconds";
  watchdog.MarkStopped();  // wakes both early
  usual.join();
  longer.join();
  watchdog.Run(boost::chrono::hours(1));  // stopped already: returns at once
  EXPECT_EQ(host.WatchdogEvents(), 1);
}

}  // namespace
}  // namespace tvx
