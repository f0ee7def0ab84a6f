// The books of the soak run find what is missing, and only that.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "soak/delivery_check.h"
#include "soak/ledger.h"
#include "soak/samples.h"
#include "support/temporary_folder.h"

namespace tvx::test {
namespace {

using namespace soak;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kKilled = 9;
constexpr int kExit7 = 7 << 8;
constexpr int kExit56 = 56 << 8;
constexpr int kExit67 = 67 << 8;

// Tells a ledger what a plug-in does.
struct Story {
  TemporaryFolder folder;
  Ledger ledger{"fates"};
  double now = 0;
  std::int32_t event = -1;

  void Log(const std::string& text, std::uint32_t level = 25) {
    ledger.Take(tool::LogLine{level, text});
  }
  // An event a second; the profiles in it that the plug-in makes notifications of.
  void Event(const std::vector<Mention>& mentions, const std::vector<int>& accepted) {
    ledger.EventBegins(++event, mentions, ++now);
    for (const int id : accepted) Log("Profile P" + std::to_string(id) + ": PreTrigger(5), ...");
    ledger.EventEnds(now + 0.001);
  }
  static std::string File(int profile, int number) {
    return "./data/notify-mail-" + std::to_string(profile) + "-" +
           std::to_string(kFirstEventTime + number) + "-0-0";
  }
  void Run(int profile, int number, int waitStatus, int logged) {
    ledger.Take(tool::Launch{4, {"./curl", "-T", File(profile, number), "smtp://127.0.0.1:25"}});
    ledger.Take(tool::ProgramEnd{4, "./curl", waitStatus, 0.1});
    Log("Profile Description: P" + std::to_string(profile) +
        ". Notification attempt return code= " + std::to_string(logged));
  }
  void Report(int profile, int status) { ledger.Take(tool::ProfileReport{profile, status, 0}); }
  void Mail(int profile, int number) {
    Run(profile, number, 0, 0);
    Report(profile, 0);
  }
  void Queue(int profile, int number, int waitStatus, int logged) {
    Run(profile, number, waitStatus, logged);
    Log("Failed to send notification using profile P1.  This message will be retried", 75);
    Report(profile, 1);
  }
  void Retry(int profile, int number, int waitStatus, int logged) {
    Log("Retrying failed notification for file " + File(profile, number));
    Run(profile, number, waitStatus, logged);
  }
};

const std::vector<Mention> kOne = {{1, true, true, 0}};
const std::vector<Mention> kThrottled = {{4, true, true, 3}};

TEST(SoakLedger, FollowsEveryNotificationToItsEnd) {
  Story story;
  story.Event({{1, true, true, 0}, {2, true, false, 0}, {99, false, false, 0}}, {1});
  story.Mail(1, 0);
  story.Event(kThrottled, {4});
  story.Mail(4, 1);
  story.Event(kThrottled, {});
  for (int i = 3; i < 8; ++i) story.Event(kOne, {1});
  story.Queue(1, 3, kExit7, 7);
  story.Queue(1, 4, kExit56, 56);
  story.Queue(1, 5, kKilled, 9 * 256);
  story.Log("Maximum failed message queue limit of 2 is exceeded.");
  story.Log("Message for profile P1 will be discarded");  // 3
  story.Retry(1, 4, 0, 0);
  story.Log("Retry for notification file (" + Story::File(1, 4) + ") suceeded.");
  story.Report(1, 0);
  story.Retry(1, 5, kExit56, 56);
  story.Log("Retry timeout reached for notification file (" + Story::File(1, 5) +
            ").  Message for profile P1 will be discarded");
  story.Run(1, 6, kExit67, 67);
  story.Log("Failed to send notification using profile P1.  This message will NOT be retried due",
            75);
  story.Report(1, 1);
  story.Queue(1, 7, kExit7, 7);
  EXPECT_EQ(story.ledger.Counts().waiting, 1u);
  story.Log("Clearing retry notifications queue. 1 failed notifications will be discarded");

  EXPECT_THAT(story.ledger.Balance(), IsEmpty());
  EXPECT_EQ(story.ledger.Counts().throttled, 1u);
  EXPECT_EQ(ReadFile("fates"),
            "1 20170714024000,mailed,0\n4 20170714024001,mailed,0\n"
            "1 20170714024003,pushed out,0\n1 20170714024004,mailed late,1\n"
            "1 20170714024005,too old,1\n1 20170714024006,refused,0\n"
            "1 20170714024007,cleared,0\n");
}

TEST(SoakLedger, FindsWhatDoesNotBalance) {
  const struct {
    const char* what;
    std::function<void(Story&)> tell;
  } cases[] = {
      {"came to nothing", [](Story& it) { it.Event(kOne, {}); }},
      {"none was due",
       [](Story& it) {
         it.Event({{1, true, false, 0}}, {1});
       }},
      {"accepted twice",
       [](Story& it) {
         it.Event(kOne, {1, 1});
       }},
      {"no event has asked for",
       [](Story& it) {
         it.Event(kOne, {1, 2});
       }},
      {"had to be throttled",
       [](Story& it) {
         it.Event(kThrottled, {4});
         it.Event(kThrottled, {4});
       }},
      {"was due",
       [](Story& it) {
         it.Event(kThrottled, {4});
         it.now += 2.1;
         it.Event(kThrottled, {});
       }},
      {"has no end", [](Story& it) { it.Event(kOne, {1}); }},
      {"no message under way",
       [](Story& it) {
         it.Event(kOne, {1});
         it.Mail(1, 0);
         it.Mail(1, 0);
       }},
      {"reports of a delivery",
       [](Story& it) {
         it.Event(kOne, {1});
         it.Run(1, 0, 0, 0);
       }},
      {"did not end so",
       [](Story& it) {
         it.Event(kOne, {1});
         it.Run(1, 0, kKilled, 0);
       }},
      {"the retry queue had 1",
       [](Story& it) {
         it.Event(kOne, {1});
         it.Queue(1, 0, kExit7, 7);
         it.Log("Clearing retry notifications queue. 2 failed notifications will be discarded");
       }},
      {"not how its last attempt ended",
       [](Story& it) {
         it.Event(kOne, {1});
         it.Queue(1, 0, kExit7, 7);
         it.Retry(1, 0, kExit7, 7);
         it.Log("Retry for notification file (" + Story::File(1, 0) + ") suceeded.");
       }},
      {"nothing here is a reason for",
       [](Story& it) { it.Log("Failed to prepare email notification file.", 75); }},
  };
  for (const auto& it : cases) {
    Story story;
    it.tell(story);
    EXPECT_THAT(testing::PrintToString(story.ledger.Balance()), HasSubstr(it.what));
  }
}

TEST(SoakDeliveries, AreComparedWithWhatTheServerTook) {
  const TemporaryFolder folder;
  const auto faults = [](const char* fate, const char* received) {
    WriteFile("fates", fate);
    WriteFile("received", received);
    return testing::PrintToString(CheckDeliveries("fates", "received").faults);
  };
  EXPECT_EQ(faults("a,mailed,0\nb,cleared,1\nc,mailed late,1\nd,too old,0\n", "a\nb\nc\nc\n"),
            "{}");
  EXPECT_THAT(faults("a,mailed late,1\n", ""), HasSubstr("has not received a"));
  EXPECT_THAT(faults("a,mailed,0\n", "a\na\n"), HasSubstr("received 2 times"));
  EXPECT_THAT(faults("a,refused,0\n", "a\n"), HasSubstr("received 1 times"));
  EXPECT_THAT(faults("", "x\n"), HasSubstr("no event has asked for: x"));
}

TEST(SoakFlatness, ToleratesWavesButNoRise) {
  constexpr double kSeconds = 1800;
  const auto faults = [](const std::function<void(Sample&)>& change) {
    std::vector<Sample> samples;
    for (int second = 0; second <= kSeconds; ++second) {
      Sample sample;
      sample.seconds = second;
      sample.process = {100'000'000 + second % 50 * 100'000, 60'000'000, 12 + second % 5, 11, 1};
      sample.framesHeld = 10'000;
      sample.frameBytesHeld = 30'000'000;
      change(sample);
      samples.push_back(sample);
    }
    return testing::PrintToString(JudgeFlatness(samples, samples.back(), kSeconds).faults);
  };
  EXPECT_EQ(faults([](Sample&) {}), "{}");
  EXPECT_THAT(faults([](Sample& it) { it.process.residentBytes += 1000 * int(it.seconds); }),
              HasSubstr("resident memory"));
  EXPECT_THAT(faults([](Sample& it) { it.process.allocatedBytes += 300 * int(it.seconds); }),
              HasSubstr("heap besides frames"));
  EXPECT_THAT(faults([](Sample& it) { it.framesHeld += int(it.seconds) / 10; }),
              HasSubstr("frames held"));
  EXPECT_THAT(faults([](Sample& it) { it.process.descriptors += int(it.seconds) / 500; }),
              HasSubstr("descriptors"));
  EXPECT_THAT(faults([](Sample& it) { it.process.threads += int(it.seconds) / 1000; }),
              HasSubstr("threads"));
  EXPECT_THAT(faults([](Sample& it) { it.process.children += int(it.seconds) / 1000; }),
              HasSubstr("child processes"));
  EXPECT_THAT(faults([](Sample& it) { it.spoolFiles = int(it.seconds) / 1000; }),
              HasSubstr("files in data/"));
}

}  // namespace
}  // namespace tvx::test
