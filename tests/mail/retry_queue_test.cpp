#include "mail/retry_queue.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "mail/mail_fixture.h"
#include "support/table.h"

namespace tvx {
namespace {

using Names = std::vector<std::string>;

class RetryQueueTest : public test::MailTest {
 protected:
  RetryQueueTest() {
    now_ = 0xFFFFFFFF - 150'000;  // wraps in the middle of the third round
    usualExit_ = 7;
  }

  // Queues a message whose file and description go by this name, "name:size" with a size of its own.
  void Enqueue(const std::string& text, std::int32_t maxQueue = 100) {
    PendingMessage message;
    const std::string name = text.substr(0, text.find(':'));
    message.path = "./data/" + name;
    message.profileDescription = name;
    message.profileId = 3;
    if (name != text)
      message.size = static_cast<std::uint32_t>(std::stoul(text.substr(name.size() + 1)));
    test::WriteFile(message.path, "mail");
    message.servers = {{"", name, 25, 0, "", ""}};
    EnqueueForRetry(helper_, {message}, maxQueue, disk_);
  }

  void EnqueueAll(const std::string& texts) {
    std::istringstream names(texts);
    for (std::string name; names >> name;) Enqueue(name);
  }

  // Runs passes until one tries nothing, each of which tries one message; gives the names tried.
  std::string RunPasses(std::int32_t maxSeconds) {
    std::string tried;
    std::size_t launches = programs_.Launches().size();
    while (RetryPass(helper_, disk_, maxSeconds)) {
      const auto& all = programs_.Launches();
      EXPECT_EQ(all.size(), ++launches);
      EXPECT_EQ("smtp://" + all.back().rbegin()[1].substr(7) + ":25", all.back().back());
      tried += all.back().rbegin()[1].substr(7);
    }
    EXPECT_EQ(programs_.Launches().size(), launches);
    return tried.empty() ? "-" : tried;
  }

  // The queue, which the files in the spool must be, too.
  std::string Left() const {
    std::string queued;
    std::vector<std::string> files;
    for (const PendingMessage& message : helper_.queue) queued += message.profileDescription + " ";
    for (const auto& entry : boost::filesystem::directory_iterator("data")) {
      files.push_back(entry.path().filename().string());
    }
    EXPECT_EQ(files.size(), helper_.queue.size());
    for (const std::string& file : files) EXPECT_NE(queued.find(file + " "), std::string::npos);
    return queued.substr(0, queued.size() - (queued.empty() ? 0 : 1));
  }
};

// "+a" queues a message, with "@2" as the second at most; a number lets so many milliseconds pass and what is due be tried; one with
// "!" lets them only pass. Programs exit with the second column, and then 7; behind that are the
// seconds of the limit, what was tried, and what is left.
TEST_F(RetryQueueTest, TheScheduleOfRounds) {
  for (const auto& row : test::Rows(R"(
      +a +b 59999 1 90000 29999 1 239999 1 480000 |    | 172800 | - ab - - ab - ab ab | a b | each once a round; it doubles
      +a +b 60000 120000! +cc@2 0              | 7 7     | 172800 | ab b                | b cc | the next is pushed out of a round
      +a +b 60000 120000 119999 1             | 7 7 0  | 172800 | ab ab - b           | b   | a sent one sets it back
      +a +b 60000 120000 119999 1             | 7 7 67 | 172800 | ab ab - b           | b   | so does one that is given up
      +a 60000 60000 +b 59999 1 119999 1      |        | 172800 | a - - ab - ab       | a b | and a new one, in the next round
      +a 60000! +b 0 119999 1                 |        | 172800 | a - ab              | a b | one that comes in a round waits
      +a 60000 30000 +b 59999 1               | 0      | 172800 | a - - b             | b   | the first one is given a minute
      +a 60000                                |        | 60     | a                   |     | a failure at the limit is the last
      +a 60000 120000                         |        | 61     | a a                 |     | before it it is not
      +a 60000 2592000000 2592000000 2592000000 2592000000 | | 8640000 | a a a a a      |     | longer than the tick runs
      +a 60000 1000000000 1000000000 1000000000 1000000000 1000000000 1000000000 1000000000 1000000000 1000000000 1000000000 1000000000 1000000000 1000000000 1000000000 1966079999 1 | | 2147483647 | a a a a a a a a a a a a a a a - a | a | it has no ceiling
      +a 60000                                | 0      | 1      | a                   |     | an old one may still arrive
      +a +b 60000                             | 26     | 172800 | ab                  | b   | a permanent failure at any age
      +a 60000                                | -1     | 172800 | a                   |     | there is no program
      +a 60000                                |        | -1     | a                   |     | no limit is one retry)")) {
    SCOPED_TRACE(row[0]);
    ClearRetryQueue(helper_, disk_);
    exits_.clear();
    std::istringstream exits(row[1]);
    for (int exit = 0; exits >> exit;) exits_.push_back(exit);
    std::string tried;
    std::istringstream steps(row[0]);
    for (std::string step; steps >> step;) {
      if (step[0] == '+') {
        const bool isLast = step.find('@') != std::string::npos;
        Enqueue(step.substr(1, step.find('@') - 1), isLast ? step.back() - '0' : 100);
        continue;
      }
      now_ += static_cast<std::uint32_t>(std::stoul(step));
      if (step.back() != '!') tried += RunPasses(std::stoi(row[2])) + " ";
    }
    EXPECT_EQ(tried, row[3] + " ");
    EXPECT_EQ(Left(), row[4]);
  }
}

TEST_F(RetryQueueTest, EveryEndIsLoggedAndADeliveryReported) {
  exits_ = {0, 67};
  for (const char* name : {"a", "b", "c"}) Enqueue(name);
  now_ += 60'000;
  for (int pass = 0; pass < 2; ++pass) RetryPass(helper_, disk_, 1000);
  ClearRetryQueue(helper_, disk_);
  ClearRetryQueue(helper_, disk_);
  EXPECT_EQ(Left(), "");
  EXPECT_EQ(helper_.messageCounter, 3U);
  EXPECT_EQ(reports_, (decltype(reports_){{3, ProfileStatus::Delivered}}));
  Names others;
  for (const test::LogLine& line : host_.Log()) {
    if (line.level == 25) others.push_back(line.text);
  }
  EXPECT_EQ(
      others,
      (Names{"Retrying failed notification for file ./data/a",
             "Profile Description: a. Notification attempt return code= 0",
             "Retry for notification file (./data/a) suceeded.",
             "Retrying failed notification for file ./data/b",
             "Retry timeout reached for notification file (./data/b).  Message for profile b "
             "will be discarded",
             "Clearing retry notifications queue. 1 failed notifications will be discarded"}));
}

// The names that are left when "new" is queued; the oldest goes, one a call.
TEST_F(RetryQueueTest, TheQueueHasALength) {
  for (const auto& [queued, limit, left] : {std::tuple("a b", 3, "a b new"),
                                            {"a b", 2, "b new"},
                                            {"a b c", 1, "b c new"},
                                            {"", 0, "new"},
                                            {"a", 0, "new"},
                                            {"a", -5, "new"}}) {
    ClearRetryQueue(helper_, disk_);
    EnqueueAll(queued);
    host_.ClearLog();
    Enqueue("new", limit);
    EXPECT_EQ(Left(), left);
    const bool dropped = *queued != '\0' && std::string(left).find('a') == std::string::npos;
    EXPECT_EQ(host_.Logged("Maximum failed message queue limit of " + std::to_string(limit) +
                           " is exceeded."),
              dropped ? 1 : 0);
    EXPECT_EQ(host_.Logged("Message for profile a will be discarded"), dropped ? 1 : 0);
    EXPECT_EQ(host_.Log().size(), dropped ? 2u : 0u);
  }
}

// Large messages go, oldest first, until there is room for "new", or it goes itself. The columns are
// the queue, the free space found, what cannot be removed, what goes, and what is left.
TEST_F(RetryQueueTest, AFullDiskHasRoomForWhatMatters) {
  for (const auto& row : test::Rows(R"(
      a:2000000                                 | 104857600           |   |     | a new
      a:4096 b:4097 c:3000 d:2000000 e:2000000  | 103857600 104857600 |   | b d | a c e new
      a:4097 b:2000000                          | 104853503 104857600 |   | a   | b new
      a:4096                                    | 94371840            |   |     | a   | nothing worth it
      a:2000000                                 | 104857599           |   | a   |     | others write, too
      a:2000000                                 | 104857599 104857600 | a | a   |     | nothing got free
      a:5000 b:2000000                          | 104857599 104857600 | a | a b | new)")) {
    SCOPED_TRACE(row[0]);
    ClearRetryQueue(helper_, disk_);
    disk_.free = {std::uint64_t{1} << 40};
    EnqueueAll(row[0]);
    host_.ClearLog();
    disk_.free.clear();
    std::istringstream free(row[1]);
    for (std::uint64_t bytes = 0; free >> bytes;) disk_.free.push_back(bytes);
    if (!row[2].empty()) disk_.stuck = {"./data/" + row[2]};
    Enqueue("new");
    disk_.stuck.clear();
    if (!row[2].empty()) std::remove(("data/" + row[2]).c_str());
    EXPECT_EQ(Left(), row[4]);
    std::vector<test::LogLine> lines;
    if (row[1][0] != '1' || row[1] < "104857600") {
      lines.push_back({25, "Available bytes " + row[1].substr(0, row[1].find(' ')) +
                               " are less than threshold of 104857600. Attempting to purge failed "
                               "notifications"});
    }
    std::istringstream purged(row[3]);
    for (std::string name; purged >> name;) {
      lines.push_back({25, "Minimum free space threshold exceeded. Message for profile " + name +
                               " (./data/" + name + ") will be discarded"});
    }
    if (row[4].find("new") == std::string::npos) {
      lines.push_back({50,
                       "Unable to free up space by removing items from notification retry queue. "
                       "Message (./data/new) for profile new will be discarded"});
    }
    EXPECT_EQ(host_.Log(), lines);
  }
}

}  // namespace
}  // namespace tvx
