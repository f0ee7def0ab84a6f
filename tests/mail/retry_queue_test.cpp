#include "mail/retry_queue.h"

#include <boost/filesystem.hpp>
#include <sstream>

#include "mail/mail_fixture.h"

namespace tvx {
namespace {

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
    message.size =
        static_cast<std::uint32_t>(std::atoi(text.substr(name.size()).c_str() + (name != text)));
    test::WriteFile(message.path, "mail");
    message.servers = {{"", name, 25, 0, "", ""}};
    EnqueueForRetry(helper_, {message}, maxQueue, disk_);
  }

  // Runs passes until one tries nothing, each of which tries one message; gives the names tried.
  std::string RunPasses(std::int32_t maxSeconds) {
    std::string tried;
    std::size_t launches = programs_.Launches().size();
    for (; RetryPass(helper_, disk_, maxSeconds); ++launches) {
      const test::Arguments last = programs_.Launches().back();
      tried += last.rbegin()[1].substr(7);
      EXPECT_EQ("smtp://" + last.rbegin()[1].substr(7) + ":25", last.back());
    }
    EXPECT_EQ(programs_.Launches().size(), launches);
    return tried.empty() ? "-" : tried;
  }

  // The queue, which the files in the spool must be, too.
  std::string Left() const {
    std::string queued;
    for (const PendingMessage& message : helper_.queue) queued += message.profileDescription + " ";
    std::size_t files = 0;
    for (const auto& entry : boost::filesystem::directory_iterator("data")) {
      EXPECT_NE(queued.find(entry.path().filename().string() + " "), std::string::npos);
      ++files;
    }
    EXPECT_EQ(files, helper_.queue.size());
    return queued.substr(0, queued.size() - (queued.empty() ? 0 : 1));
  }
};

// "+a" queues a message, with "@2" as the second at most; a number lets so many milliseconds pass and
// what is due be tried, one with "!" lets them only pass. Programs exit with the second column, and
// then 7; behind that are the seconds of the limit, what was tried, and what is left.
TEST_F(RetryQueueTest, TheScheduleOfRounds) {
  for (const auto& row : test::Rows(test::Table(TABLES))) {
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
  ExpectLog(R"(
      25 | Retrying failed notification for file ./data/a
      25 | Profile Description: a. Notification attempt return code= 0
      25 | Retry for notification file (./data/a) suceeded.
      25 | Retrying failed notification for file ./data/b
      50 | Profile Description: b. Notification attempt return code= 67
      75 | Failed to send notification using profile b.  This message will NOT be retried due to failure return codes 67 or 26 or due to failures to prepare or initiate email operation
      25 | Retry timeout reached for notification file (./data/b).  Message for profile b will be discarded
      25 | Clearing retry notifications queue. 1 failed notifications will be discarded)");
}

// What an "o"verfull queue and a disk without "s"pace discard, oldest first, to hold "new", or "new"
// itself. The columns are the queue, its limit, the free space found, what cannot be removed, what
// goes, and what is left.
TEST_F(RetryQueueTest, ThereIsRoomForWhatMatters) {
  for (const auto& row : test::Rows(test::Table(TABLES))) {
    SCOPED_TRACE(row[0]);
    ClearRetryQueue(helper_, disk_);
    disk_.free = {std::uint64_t{1} << 40};
    std::istringstream names(row[0]), free(row[2]), gone(row[4]);
    for (std::string name; names >> name;) Enqueue(name);
    host_.ClearLog();
    if (!row[2].empty()) disk_.free.clear();
    for (std::uint64_t bytes = 0; free >> bytes;) disk_.free.push_back(bytes);
    const std::uint64_t found = disk_.free.front();
    if (!row[3].empty()) disk_.stuck = {"./data/" + row[3]};
    Enqueue("new", std::stoi(row[1]));
    disk_.stuck.clear();
    if (!row[3].empty()) std::remove(("data/" + row[3]).c_str());
    EXPECT_EQ(Left(), row[5]);
    std::string lines;
    if (found < 104857600) {
      lines = "25|Available bytes " + std::to_string(found) +
              " are less than threshold of 104857600. Attempting to purge failed notifications\n";
    }
    for (std::string name; gone >> name;) {
      const std::string who = name.substr(name.size() - 1) + ' ';
      lines += name[0] == 'o' ? "25|Maximum failed message queue limit of " + row[1] +
                                    " is exceeded.\n25|Message for profile " + who
               : name[0] == 's' ? "25|Minimum free space threshold exceeded. Message for profile " +
                                      who + "(./data/" + name.substr(2) + ") "
                                : "50|Unable to free up space by removing items from notification "
                                  "retry queue. Message (./data/new) for profile new ";
      lines += "will be discarded\n";
    }
    ExpectLog(lines);
  }
}

}  // namespace
}  // namespace tvx
