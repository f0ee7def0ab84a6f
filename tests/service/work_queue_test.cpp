#include "service/work_queue.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace tvx {
namespace {

WorkQueue::Item Notification(std::int32_t number) {
  auto item = std::make_shared<NotifyWorkItem>();
  item->eventSeconds = number;
  return item;
}

TEST(WorkQueue, TheStopItemOvertakesEverything) {
  WorkQueue queue;
  queue.Enqueue({Notification(1), Notification(2)});
  queue.EnqueueStop();
  EXPECT_EQ(queue.Take()->kind, NotifyWorkItem::Kind::Stop);
  EXPECT_EQ(queue.Take()->eventSeconds, 1);
  EXPECT_EQ(queue.TakeWithin(boost::chrono::milliseconds(0))->eventSeconds, 2);
  EXPECT_EQ(queue.TakeWithin(boost::chrono::milliseconds(1)), nullptr);
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
}

}  // namespace
}  // namespace tvx
