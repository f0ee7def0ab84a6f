#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <boost/thread/thread.hpp>
#include <cstdio>
#include <ctime>
#include <functional>

#include "base/clock.h"
#include "base/file.h"
#include "base/immortal.h"
#include "base/mutex.h"

namespace tvx {
namespace {

TEST(Clock, IsTheSystemsUntilItIsReplaced) {
  const auto milliseconds = [] {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint32_t>(now.tv_sec * 1000LL + now.tv_nsec / 1000000);
  };
  const std::uint32_t before = milliseconds();
  const std::uint32_t tick = TickNow();
  EXPECT_LE(tick - before, milliseconds() - before);  // modulo 2^32
  const std::int64_t second = std::time(nullptr);
  const std::int64_t wall = WallSeconds();
  EXPECT_TRUE(second <= wall && wall <= std::time(nullptr));

  SetTickClock([] { return 0xFFFFFFFFu; });
  SetWallClock([] { return std::int64_t{1} << 40; });
  EXPECT_EQ(TickNow(), 0xFFFFFFFFu);
  EXPECT_EQ(WallSeconds(), std::int64_t{1} << 40);
  SetTickClock({});
  SetWallClock({});
  EXPECT_THROW(TickNow(), std::bad_function_call);
  EXPECT_LE(WallSeconds() - wall, 600);
  SetTickClock(MonotonicTick);
  EXPECT_LT(TickNow() - tick, 600'000u);
}

TEST(Clock, TicksAreOrderedAcrossTheWrap) {
  EXPECT_EQ(TickDifference(7, 5), 2);
  EXPECT_EQ(TickDifference(5, 7), -2);
  EXPECT_EQ(TickDifference(4, 0xFFFFFFFEu), 6);
  EXPECT_EQ(TickDifference(0xFFFFFFFEu, 4), -6);
  EXPECT_EQ(TickDifference(0x80000001u, 2), 0x7FFFFFFF);
  EXPECT_EQ(TickDifference(0x80000002u, 1), -0x7FFFFFFF);
}

TEST(Mutex, LetsOneThreadInAtATime) {
  Mutex mutex;
  std::atomic<int> ready{0};
  int count = 0;
  const auto addMany = [&] {
    for (++ready; ready < 2;) boost::this_thread::yield();
    for (int i = 0; i < 2000; ++i) {
      MutexLock lock(mutex);
      const int before = count;
      boost::this_thread::yield();
      count = before + 1;
    }
  };
  boost::thread other(addMany);
  addMany();
  other.join();
  EXPECT_EQ(count, 4000);
}

// Waiters return with the mutex, one after the other; whoever waits does not hold it.
TEST(ConditionVariable, WakesByASignalATimeOutOrAnInterruption) {
  Mutex mutex;
  ConditionVariable changed;
  int waiting = 0, woken = 0, interrupted = 0, inside = 0;
  bool go = false;
  const auto soon = boost::chrono::steady_clock::now() + boost::chrono::minutes(10);
  const auto wait = [&](bool forEver) {
    MutexLock lock(mutex);
    ++waiting;
    try {
      while (!go) {
        const bool timedOut =
            forEver ? (changed.Wait(mutex), false) : changed.WaitUntil(mutex, soon);
        EXPECT_FALSE(timedOut);
      }
      ++woken;
    } catch (const boost::thread_interrupted&) {
      ++interrupted;
    }
    EXPECT_EQ(inside++, 0);
    boost::this_thread::yield();
    --inside;
  };
  const auto awaitCount = [&](const int& count, int expected) {
    for (;; boost::this_thread::yield()) {
      MutexLock lock(mutex);
      if (count == expected) return;
    }
  };
  boost::thread_group threads;
  for (const bool forEver : {true, false, true})
    threads.create_thread([&, forEver] { wait(forEver); });
  boost::thread victim([&] { wait(true); });
  awaitCount(waiting, 4);
  victim.interrupt();
  victim.join();
  {
    MutexLock lock(mutex);
    go = true;
    EXPECT_TRUE(changed.WaitUntil(mutex, boost::chrono::steady_clock::now()));
  }
  changed.NotifyOne();
  awaitCount(woken, 1);
  changed.NotifyAll();
  threads.join_all();
  EXPECT_EQ(woken, 3);
  EXPECT_EQ(interrupted, 1);
}

TEST(Immortal, StartsEmptyAndIsNeverDestroyed) {
  struct Probe {
    ~Probe() { ADD_FAILURE(); }
    int number;
  };
  const Immortal<Probe> probe;
  EXPECT_EQ(probe.value.number, 0);
}

TEST(File, ClosesItself) {
  File file(std::fopen("/dev/null", "r"));
  const int descriptor = ::fileno(file.get());
  file.reset();
  EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

}  // namespace
}  // namespace tvx
