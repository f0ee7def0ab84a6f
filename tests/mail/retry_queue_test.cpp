#include "mail/retry_queue.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/clock.h"
#include "mail/scripted_helper.h"
#include "mail/spool.h"
#include "support/fake_host.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

constexpr std::uint32_t kMinute = 60'000;
constexpr std::int32_t kLong = 172800;

class RetryQueueTest : public testing::Test {
 protected:
  RetryQueueTest() {
    ::mkdir("data", 0700);
    SetTickClock([this] { return now_; });
  }
  ~RetryQueueTest() override { SetTickClock(MonotonicTick); }

  // Queues a message whose file and description go by this name.
  void Enqueue(const std::string& name, std::int32_t maxQueue = 100, std::uint32_t size = 10) {
    PendingMessage message;
    message.path = "./data/" + name;
    message.profileDescription = name;
    message.profileId = 3;
    message.size = size;
    test::WriteFile(message.path, "mail");
    message.servers = {{"server of " + name, "a", 25, 0, "", ""}};
    EnqueueForRetry(helper_, {message}, maxQueue, disk_);
  }

  // Advances the clock and runs passes until one tries nothing; gives the names tried.
  std::vector<std::string> After(std::uint32_t milliseconds, std::int32_t maxSeconds = kLong) {
    now_ += milliseconds;
    const std::size_t before = helper_.transfers.size();
    while (RetryPass(helper_, disk_, maxSeconds)) {
    }
    std::vector<std::string> tried;
    for (std::size_t i = before; i < helper_.transfers.size(); ++i) {
      const auto& arguments = helper_.transfers[i].arguments;
      tried.push_back(std::find(arguments.begin(), arguments.end(), "-T")[1].substr(7));
    }
    return tried;
  }

  std::vector<std::string> Queued() const {
    std::vector<std::string> names;
    for (const PendingMessage& message : helper_.queue) names.push_back(message.profileDescription);
    return names;
  }

  using Names = std::vector<std::string>;
  test::FakeHost host_;
  test::TemporaryFolder folder_;
  test::ScriptedHelper helper_;
  test::ScriptedDisk disk_;
  std::uint32_t now_ = 0xFFFFFFFF - 150'000;  // wraps in the middle of the third round
};

TEST_F(RetryQueueTest, RoundsTryEachMessageOnceAndTheIntervalDoubles) {
  helper_.exits.assign(100, 7);
  Enqueue("a");
  Enqueue("b");
  EXPECT_EQ(After(kMinute - 1), Names{});
  EXPECT_EQ(After(1), (Names{"a", "b"}));
  EXPECT_EQ(After(2 * kMinute - 1), Names{});
  EXPECT_EQ(After(1), (Names{"a", "b"}));
  EXPECT_EQ(After(4 * kMinute - 1), Names{});
  EXPECT_EQ(After(1), (Names{"a", "b"}));
  EXPECT_EQ(helper_.retryInterval, 8 * kMinute);
  EXPECT_TRUE(test::FileExists("data/a"));
}

TEST_F(RetryQueueTest, APassTriesOneMessage) {
  helper_.exits.assign(100, 7);
  Enqueue("a");
  Enqueue("b");
  now_ += kMinute;
  EXPECT_TRUE(RetryPass(helper_, disk_, kLong));
  EXPECT_EQ(helper_.transfers.size(), 1u);
  EXPECT_EQ(helper_.retryInterval, kMinute);  // the round is not complete
  EXPECT_TRUE(RetryPass(helper_, disk_, kLong));
  EXPECT_FALSE(RetryPass(helper_, disk_, kLong));
  EXPECT_EQ(helper_.retryInterval, 2 * kMinute);
}

TEST_F(RetryQueueTest, SuccessReportsRemovesAndResetsTheInterval) {
  helper_.exits = {7, 7, 0, 7};
  Enqueue("a");
  Enqueue("b");
  EXPECT_EQ(After(kMinute), (Names{"a", "b"}));
  host_.ClearLog();
  EXPECT_EQ(After(2 * kMinute), (Names{"a", "b"}));
  EXPECT_EQ(Queued(), (Names{"b"}));
  EXPECT_FALSE(test::FileExists("data/a"));
  EXPECT_EQ(helper_.reports,
            (std::vector<std::pair<std::int32_t, ProfileStatus>>{{3, ProfileStatus::Delivered}}));
  EXPECT_EQ(helper_.retryInterval, 2 * kMinute);  // reset to a minute, then doubled by the round
  EXPECT_EQ(host_.Logged("Retrying failed notification for file ./data/a"), 1);
  EXPECT_EQ(host_.Logged("Retry for notification file (./data/a) suceeded."), 1);
}

TEST_F(RetryQueueTest, ANewMessageResetsTheIntervalButNotTheRound) {
  helper_.exits.assign(100, 7);
  Enqueue("a");
  After(kMinute);
  const std::uint32_t next = helper_.nextRetry;
  now_ += kMinute;
  Enqueue("b");
  EXPECT_EQ(helper_.retryInterval, kMinute);
  EXPECT_EQ(helper_.nextRetry, next);
  EXPECT_EQ(After(kMinute), (Names{"a", "b"}));
  EXPECT_EQ(helper_.messageCounter, 2u);
}

TEST_F(RetryQueueTest, AMessageQueuedDuringARoundWaitsForTheNext) {
  helper_.exits.assign(100, 7);
  Enqueue("a");
  now_ += kMinute;
  Enqueue("b");
  EXPECT_EQ(After(0), (Names{"a"}));
}

TEST_F(RetryQueueTest, AgeCountsOnlyAfterAFailedAttempt) {
  helper_.exits = {7, 7, 0};
  Enqueue("a");
  EXPECT_EQ(After(kMinute, 61), (Names{"a"}));
  EXPECT_EQ(Queued(), (Names{"a"}));
  EXPECT_EQ(After(2 * kMinute, 61), (Names{"a"}));
  EXPECT_EQ(Queued(), Names{});
  EXPECT_FALSE(test::FileExists("data/a"));
  EXPECT_EQ(host_.Logged("Retry timeout reached for notification file (./data/a).  Message for "
                         "profile a will be discarded"),
            1);
  Enqueue("b");
  EXPECT_EQ(After(kMinute, 1), (Names{"b"}));  // old, but it arrives
  EXPECT_EQ(helper_.reports.size(), 1u);
}

TEST_F(RetryQueueTest, AgeAtExactlyTheLimitAndPermanentFailuresDiscard) {
  helper_.exits = {7, 67};
  Enqueue("a");
  EXPECT_EQ(After(kMinute, 60), (Names{"a"}));
  EXPECT_EQ(Queued(), Names{});
  Enqueue("b");
  EXPECT_EQ(After(kMinute), (Names{"b"}));
  EXPECT_EQ(Queued(), Names{});
  EXPECT_EQ(host_.Logged("Retry timeout reached for notification file (./data/b).  Message for "
                         "profile b will be discarded"),
            1);
}

TEST_F(RetryQueueTest, ALimitOf2147483647SecondsDoesNotOverflow) {
  helper_.exits.assign(3, 7);
  Enqueue("a");
  After(kMinute, 2147483647);
  EXPECT_EQ(Queued(), (Names{"a"}));
}

TEST_F(RetryQueueTest, EachMessageKeepsItsOwnServers) {
  Enqueue("a");
  Enqueue("b");
  ASSERT_EQ(helper_.queue.size(), 2u);
  EXPECT_EQ(helper_.queue.front().servers.at(0).description, "server of a");
  EXPECT_EQ(helper_.queue.back().servers.at(0).description, "server of b");
}

TEST_F(RetryQueueTest, LengthPushesOutTheOldestOnly) {
  Enqueue("a", 2);
  Enqueue("b", 2);
  Enqueue("c", 2);
  EXPECT_EQ(Queued(), (Names{"b", "c"}));
  EXPECT_FALSE(test::FileExists("data/a"));
  EXPECT_EQ(host_.LogTexts(), (Names{"Maximum failed message queue limit of 2 is exceeded.",
                                     "Message for profile a will be discarded"}));
  Enqueue("d", 1);  // a smaller limit still drops one a call
  EXPECT_EQ(Queued(), (Names{"c", "d"}));
  ClearRetryQueue(helper_, disk_);
  Enqueue("e", 0);  // nothing to push out
  EXPECT_EQ(Queued(), (Names{"e"}));
}

TEST_F(RetryQueueTest, AFullDiskDropsLargeMessagesUntilThereIsRoom) {
  Enqueue("small", 100, 4096);
  Enqueue("first", 100, 4097);
  Enqueue("second", 100, 3000);
  Enqueue("third", 100, 2'000'000);
  Enqueue("fourth", 100, 2'000'000);
  host_.ClearLog();
  disk_.free = {104857600 - 1'000'000, 104857600};
  Enqueue("new");
  EXPECT_EQ(Queued(), (Names{"small", "second", "fourth", "new"}));
  EXPECT_EQ(host_.LogTexts(),
            (Names{"Available bytes 103857600 are less than threshold of 104857600. Attempting to "
                   "purge failed notifications",
                   "Minimum free space threshold exceeded. Message for profile first "
                   "(./data/first) will be discarded",
                   "Minimum free space threshold exceeded. Message for profile third "
                   "(./data/third) will be discarded"}));
}

TEST_F(RetryQueueTest, WithoutRoomTheNewMessageIsDiscarded) {
  struct Case {
    std::uint32_t size;
    std::deque<std::uint64_t> free;
    bool stuck;
    Names left;
  };
  const std::string refusal =
      "Unable to free up space by removing items from notification retry queue. Message "
      "(./data/new) for profile new will be discarded";
  for (const Case& c : {Case{4096, {94371840}, false, {"a"}},                 // nothing worth it
                        Case{2'000'000, {104857599, 104857599}, false, {}},   // others write, too
                        Case{2'000'000, {104857599, 1u << 30}, true, {}}}) {  // nothing got free
    ClearRetryQueue(helper_, disk_);
    disk_.free = {std::uint64_t{1} << 40};
    disk_.stuck.clear();
    Enqueue("a", 100, c.size);
    host_.ClearLog();
    disk_.free = c.free;
    if (c.stuck) disk_.stuck = {"./data/a"};
    Enqueue("new");
    EXPECT_EQ(Queued(), c.left);
    EXPECT_FALSE(test::FileExists("data/new"));
    EXPECT_EQ(host_.Log().back(), (test::LogLine{50, refusal}));
  }
}

TEST_F(RetryQueueTest, ClearingRemovesEveryFile) {
  ClearRetryQueue(helper_, disk_);
  EXPECT_TRUE(host_.Log().empty());
  Enqueue("a");
  Enqueue("b");
  ClearRetryQueue(helper_, disk_);
  EXPECT_EQ(Queued(), Names{});
  EXPECT_FALSE(test::FileExists("data/a"));
  EXPECT_EQ(host_.LogTexts(), (Names{"Clearing retry notifications queue. 2 failed notifications "
                                     "will be discarded"}));
}

}  // namespace
}  // namespace tvx
