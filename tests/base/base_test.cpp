#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <boost/thread/thread.hpp>
#include <ctime>
#include <random>
#include <string>

#include "base/base64.h"
#include "base/clock.h"
#include "base/mutex.h"

namespace tvx {
namespace {

// The plain way, bit by bit, to hold the fast ones against.
std::string Reference(const std::string& bytes) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
    const auto first = static_cast<unsigned char>(bytes[bit / 8]);
    const auto second =
        static_cast<unsigned char>(bit / 8 + 1 < bytes.size() ? bytes[bit / 8 + 1] : 0);
    encoded += alphabet[(first << 8 | second) >> (10 - bit % 8) & 63];
  }
  return encoded + std::string((4 - encoded.size() % 4) % 4, '=');
}

// The end of memory behind which nothing may be touched: whoever does ends the test.
char* GuardedEnd() {
  void* pages = ::mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  char* const end = static_cast<char*>(pages) + 4096;
  EXPECT_EQ(::mprotect(end, 4096, PROT_NONE), 0);
  return end;
}

// Every length up to some lines, so that the wide steps, the lines and each tail have their turn.
TEST(Base64, IsTheSameInAnyLengthAndForAnyBytes) {
  char* const inputEnd = GuardedEnd();
  char* const outputEnd = GuardedEnd();
  std::minstd_rand random(7);
  for (std::size_t length = 0; length < 300; ++length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random() >> 8);
    EXPECT_EQ(Base64Encode(bytes.data(), bytes.size()), Reference(bytes)) << length;
    std::string expected;
    for (std::size_t at = 0; at < length; at += 57) {
      expected += Reference(bytes.substr(at, 57));
      if (expected.back() != '=') expected += '\n';
    }
    std::copy(bytes.begin(), bytes.end(), inputEnd - length);
    char* const lines = outputEnd - (length + 56) / 57 * 77;
    const auto* input = reinterpret_cast<const unsigned char*>(inputEnd - length);
    EXPECT_EQ(std::string(lines, EncodeBase64Lines(input, length, "\n", lines)), expected)
        << length;
  }
}

TEST(Clock, IsTheSystemsUntilItIsReplacedAndMayWrap) {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const auto before = static_cast<std::uint32_t>(now.tv_sec * 1000LL + now.tv_nsec / 1000000);
  EXPECT_LT(TickNow() - before, 60'000u);  // modulo 2^32
  EXPECT_LT(WallSeconds() - std::time(nullptr), 60);
  SetTickClock([] { return 4u; });
  SetWallClock([] { return std::int64_t{1} << 40; });
  EXPECT_EQ(TickDifference(TickNow(), 0xFFFFFFFEu), 6);
  EXPECT_EQ(TickDifference(0xFFFFFFFEu, 4), -6);
  EXPECT_EQ(WallSeconds(), std::int64_t{1} << 40);
  SetTickClock(MonotonicTick);
  SetWallClock({});
  EXPECT_LT(TickNow() - before, 60'000u);
}

// Waiters return with the mutex, one after the other; whoever waits does not hold it.
TEST(ConditionVariable, WakesByASignalOrATimeOut) {
  Mutex mutex;
  ConditionVariable changed;
  int waiting = 0, woken = 0, inside = 0;
  const auto later = boost::chrono::steady_clock::now() + boost::chrono::minutes(10);
  boost::thread_group threads;
  const auto awaitCount = [&](const int& count, int expected) {
    for (;; boost::this_thread::yield()) {
      MutexLock lock(mutex);
      if (count == expected) return;
    }
  };
  for (const bool hasDeadline : {false, true, false}) {
    threads.create_thread([&, hasDeadline] {
      MutexLock lock(mutex);
      ++waiting;
      EXPECT_FALSE(hasDeadline ? changed.WaitUntil(mutex, later) : (changed.Wait(mutex), false));
      EXPECT_EQ(inside++, 0);
      for (int i = 0; i < 100; ++i) boost::this_thread::yield();
      --inside;
      ++woken;
    });
  }
  awaitCount(waiting, 3);
  changed.NotifyOne();
  awaitCount(woken, 1);
  changed.NotifyAll();
  threads.join_all();
  MutexLock lock(mutex);
  EXPECT_TRUE(changed.WaitUntil(mutex, boost::chrono::steady_clock::now()));
}

}  // namespace
}  // namespace tvx
