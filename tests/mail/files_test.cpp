#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "mail/mail_fixture.h"
#include "mail/notify_file.h"
#include "mail/spool.h"

namespace tvx {
namespace {

using FilesTest = test::MailTest;

TEST_F(FilesTest, TheStreamKeepsItsErrorUntilItIsOpenedAgain) {
  EXPECT_FALSE(disk_.open("missing/file", std::ios::binary));
  EXPECT_TRUE(disk_.fail());
  ASSERT_TRUE(disk_.open("file", std::ios::binary));
  disk_.write(std::string("a")).write("b").write(std::int32_t{-12}).write(4294967295U);
  EXPECT_EQ(disk_.position(), 15);
  disk_.write(static_cast<const char*>(nullptr)).write("lost");
  EXPECT_TRUE(disk_.fail());
  disk_.close();
  EXPECT_EQ(test::ReadFile("file"), "ab-124294967295");
  EXPECT_TRUE(disk_.open("file", std::ios::binary));
  EXPECT_TRUE(disk_.good());
}

unsigned Mode(const char* path) {
  struct stat found {};
  ::lstat(path, &found);
  return found.st_mode & 07777U;
}

TEST_F(FilesTest, TheStreamWritesFilesOfItsOwnOnly) {
  test::WriteFile("wide", "before, and longer");
  ASSERT_EQ(::chmod("wide", 0666), 0);
  test::WriteFile("elsewhere", "before");
  ASSERT_EQ(::symlink("elsewhere", "link"), 0);
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  const int reader = ::open("fifo", O_RDONLY | O_NONBLOCK);
  for (const std::string path : {"new", "wide", "link", "fifo", "missing/file"}) {
    const bool opens = path == "new" || path == "wide";
    EXPECT_EQ(disk_.open(path, std::ios::binary | std::ios::trunc), opens) << path;
    disk_.write("mail");
    disk_.close();
    EXPECT_EQ(disk_.fail(), !opens);
    if (!opens) continue;
    EXPECT_EQ(test::ReadFile(path), "mail");
    EXPECT_EQ(Mode(path.c_str()), 0600U);
  }
  ::close(reader);
  EXPECT_EQ(test::ReadFile("elsewhere"), "before");
}

TEST_F(FilesTest, DirectoriesAndFreeSpace) {
  NotifyFileStreamImpl stream(&test::FakeHost::Entry);
  test::WriteFile("file", "");
  ASSERT_EQ(::chmod("data", 0755), 0);
  EXPECT_TRUE(stream.createDirectory("data"));  // it is there
  EXPECT_EQ(Mode("data"), 0700U);
  for (const char* path : {"file", "missing/data"}) EXPECT_FALSE(stream.createDirectory(path));
  test::WriteFile("data/file", "");
  for (const char* path : {"file", "file", "data/file/below"}) EXPECT_TRUE(stream.remove(path));
  EXPECT_FALSE(stream.remove("data"));
  EXPECT_FALSE(test::FileExists("file"));
  EXPECT_GT(stream.space("data"), 0U);
  EXPECT_EQ(stream.space("missing"), 104857601U);  // a failed query is no full disk
  ASSERT_EQ(host_.Log().size(), 1U);
  EXPECT_EQ(host_.Log()[0].level, 25U);
  EXPECT_THAT(host_.Log()[0].text, testing::StartsWith("Exception while query volume space: "));
}

TEST_F(FilesTest, AFileTellsWhetherItCanBeRead) {
  test::WriteFile("file", "abcde");
  CNotifyFileImpl file("file"), directory(".");
  char buffer[4];
  for (const std::size_t expected : {4U, 1U, 0U}) {
    EXPECT_TRUE(file.good());  // the end is no error
    EXPECT_EQ(file.read(buffer, 4), expected);
  }
  EXPECT_FALSE(CNotifyFileImpl("missing").good());
  EXPECT_EQ(directory.read(buffer, 4), 0U);
  EXPECT_FALSE(directory.good());
}

TEST_F(FilesTest, TheSweepTakesMessagesOnly) {
  ASSERT_EQ(::mkdir("data/notify-mail-folder", 0700), 0);
  ASSERT_EQ(::symlink("../notify-mail-1-2-3-4", "data/notify-mail-link"), 0);
  const char* const taken[] = {"data/notify-mail-1-2-3-4", "data/notify-mail-"};
  const char* const left[] = {"data/my-notify-mail-1", "notify-mail-1-2-3-4"};
  for (const char* path : taken) test::WriteFile(path, "");
  for (const char* path : left) test::WriteFile(path, "");
  ClearSpool(&test::FakeHost::Entry);
  for (const char* path : taken) EXPECT_FALSE(test::FileExists(path)) << path;
  for (const char* path : left) EXPECT_TRUE(test::FileExists(path)) << path;
  EXPECT_TRUE(test::FileExists("data/notify-mail-folder"));
  EXPECT_NE(::access("data/notify-mail-link", F_OK), 0);
  // A folder behind a link is somebody else's.
  test::WriteFile("data/notify-mail-5", "");
  ASSERT_EQ(::rename("data", "others"), 0);
  ClearSpool(&test::FakeHost::Entry);  // no directory: nothing to report
  ASSERT_EQ(::symlink("others", "data"), 0);
  ClearSpool(&test::FakeHost::Entry);
  EXPECT_TRUE(test::FileExists("data/notify-mail-5"));
  EXPECT_TRUE(host_.Log().empty());
}

}  // namespace
}  // namespace tvx
