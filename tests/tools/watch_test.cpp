// What --watch prints where there is no terminal, and what it knows.
#include "simulated_host/watch_printer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace tvx::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// A file in memory, taken line by line.
class Output {
 public:
  Output() : file_(open_memstream(&text_, &size_)) {}
  ~Output() {
    std::fclose(file_);
    std::free(text_);
  }
  std::FILE* File() { return file_; }

  std::vector<std::string> NewLines() {
    std::fflush(file_);
    std::vector<std::string> lines;
    const std::string text(text_, size_);
    for (std::size_t end = 0; (end = text.find('\n', read_)) != std::string::npos;
         read_ = end + 1) {
      lines.push_back(text.substr(read_, end - read_));
    }
    return lines;
  }

 private:
  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::size_t read_ = 0;
  std::FILE* file_;
};

TEST(WatchLines, TellsChangesOnceASecondOfTheWorldAndFaultsAtOnce) {
  Output out;
  WatchLines printer(out.File(), 10);  // a second of the world is ten of the plug-in's
  const std::vector<std::int32_t> profiles = {1, 1, 2};
  printer.Refresh(0.2);
  EXPECT_THAT(out.NewLines(), ElementsAre(HasSubstr("mail server not the host's; faults 0")));
  printer.Observe(1, NotificationsAsked{profiles});
  printer.Print(2, MailServerChange{MailServerChange::What::Down});
  printer.Refresh(10.1);
  EXPECT_THAT(out.NewLines(), ElementsAre());
  printer.Refresh(10.2);
  EXPECT_THAT(out.NewLines(), ElementsAre(HasSubstr("   10.200  asked 3, not reported 3, delivered "
                                                    "0, failed 0; queued 0, retrying 0; programs "
                                                    "0, transfers 0; mail server down")));
  printer.Refresh(40);
  EXPECT_THAT(out.NewLines(), ElementsAre());

  printer.Print(41, ProfileStatus{1, kStatusDelivered, 0});
  printer.Print(41, ProfileStatus{2, kStatusUnknown, 0});
  printer.Print(41, Fault{"this and\x1b that"});
  EXPECT_THAT(out.NewLines(), ElementsAre(HasSubstr("FAULT  this and\\x1b that")));
  printer.Finish(41.5);
  EXPECT_THAT(out.NewLines(),
              ElementsAre(HasSubstr("asked 3, not reported 2, delivered 1, failed 0")));
}

TEST(RunStatus, FollowsMessagesAndFrames) {
  RunStatus status;
  const auto launch = [&status](std::uint32_t request, const char* file) {
    status.Follow(0, Launch{request, {"./curl", "-T", file}});
  };
  status.Follow(0, Launch{1, {"./curl", "-V"}});
  launch(2, "first");
  EXPECT_EQ(status.Programs(), 2u);
  EXPECT_EQ(status.Transfers(), 1u);
  EXPECT_EQ(status.Retrying(), 0u);
  status.Follow(1, ProgramEnd{2, "./curl", 0, 0});
  status.Follow(1, RetryChange{RetryChange::What::Queued, "first", "", 1, 0, 1});
  launch(3, "first");
  EXPECT_EQ(status.Queued(), 1u);
  EXPECT_EQ(status.Retrying(), 1u);
  status.Follow(2, RetryChange{RetryChange::What::Tried, "first", "", 2, 0, 1});
  status.Follow(2, RetryChange{RetryChange::What::Discarded, "first", "", 2, 0, 0});
  EXPECT_EQ(status.Queued(), 0u);
  EXPECT_EQ(status.Retrying(), 0u);

  // One frame comes back before its Write has returned.
  status.Follow(FrameReturn{7});
  EXPECT_EQ(status.Held(), 0u);
  for (const bool taken : {true, true, false}) status.Follow(FrameWrite{7, 100, false, taken});
  EXPECT_EQ(status.Held(), 1u);
  EXPECT_EQ(status.Streams().at(7).offered, 3u);
}

TEST(FeedProgress, IsThatOfTheFilesBeingFed) {
  RunStatus status;
  const auto feed = [&status](std::uint32_t stream, bool isFile, int expected, int frames) {
    status.Follow(10, FeedStart{stream, "", isFile, expected});
    for (int i = 0; i < frames; ++i) status.Follow(FrameWrite{stream, 1, false, true});
  };
  feed(1, true, 100, 21);
  feed(2, true, 50, 11);
  feed(3, false, 0, 500);
  // Twenty seconds of the plug-in's are two of the world's.
  EXPECT_EQ(
      Describe(ProgressOfFiles(status, 30, 10)),
      "[#####-------------------]  21 %  feeding 2 files: 32 of 150 frames, 15.0/s, 8 s left");
  status.Follow(31, FeedEnd{1, 21, 0, 0});
  feed(4, true, 0, 1);
  EXPECT_EQ(Describe(ProgressOfFiles(status, 30, 10)), "feeding 2 files: 12 frames, 5.0/s");
}

}  // namespace
}  // namespace tvx::tool
