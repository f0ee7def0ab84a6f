#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "mail/notify_file.h"
#include "mail/notify_file_stream.h"
#include "mail/spool.h"
#include "support/fake_host.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

TEST(NotifyFileStream, KeepsItsErrorUntilItIsOpenedAgain) {
  const test::TemporaryFolder folder;
  NotifyFileStreamImpl stream(nullptr);
  EXPECT_FALSE(stream.open("missing/file", std::ios::binary));
  EXPECT_TRUE(stream.fail());
  ASSERT_TRUE(stream.open("file", std::ios::binary));
  stream.write(std::string("a"))
      .write("b")
      .write(std::int32_t{-12})
      .write(std::uint32_t{4294967295u});
  EXPECT_EQ(stream.position(), 15);
  stream.write(static_cast<const char*>(nullptr));
  EXPECT_TRUE(stream.fail());
  stream.write("lost");
  stream.close();
  EXPECT_EQ(test::ReadFile("file"), "ab-124294967295");
  EXPECT_TRUE(stream.open("file", std::ios::binary));
  EXPECT_TRUE(stream.good());
}

std::string Mode(const char* path) {
  struct stat found {};
  ::lstat(path, &found);
  char text[8];
  std::snprintf(text, sizeof(text), "%o", static_cast<unsigned>(found.st_mode & 07777));
  return text;
}

TEST(NotifyFileStream, WritesFilesOfItsOwnOnly) {
  const test::TemporaryFolder folder;
  test::WriteFile("wide", "before, and longer");
  ASSERT_EQ(::chmod("wide", 0666), 0);
  test::WriteFile("elsewhere", "before");
  ASSERT_EQ(::symlink("elsewhere", "link"), 0);
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  const int reader = ::open("fifo", O_RDONLY | O_NONBLOCK);
  for (const auto& [path, opens] : {std::pair("new", true),
                                    {"wide", true},
                                    {"link", false},
                                    {"fifo", false},
                                    {"missing/file", false}}) {
    NotifyFileStreamImpl stream(nullptr);
    EXPECT_EQ(stream.open(path, std::ios::binary | std::ios::trunc), opens) << path;
    stream.write("mail");
    stream.close();
    EXPECT_EQ(stream.fail(), !opens);
    if (!opens) continue;
    EXPECT_EQ(test::ReadFile(path), "mail");
    EXPECT_EQ(Mode(path), "600");
  }
  ::close(reader);
  EXPECT_EQ(test::ReadFile("elsewhere"), "before");
}

TEST(NotifyFileStream, DirectoriesAndFreeSpace) {
  const test::TemporaryFolder folder;
  test::FakeHost host;
  NotifyFileStreamImpl stream(&test::FakeHost::Entry);
  test::WriteFile("file", "");
  for (const auto& [path, made] :
       {std::pair("data", true), {"data", true}, {"file", false}, {"missing/data", false}}) {
    EXPECT_EQ(stream.createDirectory(path), made) << path;
  }
  EXPECT_EQ(Mode("data"), "700");
  ASSERT_EQ(::chmod("data", 0755), 0);
  EXPECT_TRUE(stream.createDirectory("data"));
  EXPECT_EQ(Mode("data"), "700");
  test::WriteFile("data/file", "");
  for (const auto& [path, removed] :
       {std::pair("file", true), {"file", true}, {"data", false}, {"data/file/below", true}}) {
    EXPECT_EQ(stream.remove(path), removed) << path;
  }
  EXPECT_FALSE(test::FileExists("file"));
  EXPECT_GT(stream.space("data"), 0u);
  EXPECT_EQ(stream.space("missing"), 104857601u);  // a failed query is no full disk
  ASSERT_EQ(host.Log().size(), 1u);
  EXPECT_EQ(host.Log()[0].level, 25u);
  EXPECT_EQ(host.Log()[0].text.rfind("Exception while query volume space: ", 0), 0u);
}

TEST(NotifyFile, ReportsWhetherItCanBeRead) {
  const test::TemporaryFolder folder;
  test::WriteFile("file", "abcde");
  CNotifyFileImpl file("file");
  char buffer[4];
  for (const std::size_t expected : {4u, 1u, 0u}) {
    EXPECT_TRUE(file.good());  // the end is no error
    EXPECT_EQ(file.read(buffer, 4), expected);
  }
  EXPECT_FALSE(CNotifyFileImpl("missing").good());
  CNotifyFileImpl directory(".");
  EXPECT_EQ(directory.read(buffer, 4), 0u);
  EXPECT_FALSE(directory.good());
}

TEST(Spool, SweepsMessagesOnly) {
  const test::TemporaryFolder folder;
  test::FakeHost host;
  ClearSpool(&test::FakeHost::Entry);  // no directory yet: nothing to report
  ASSERT_EQ(::mkdir("data", 0700), 0);
  ASSERT_EQ(::mkdir("data/notify-mail-folder", 0700), 0);
  const std::pair<const char*, bool> files[] = {{"data/notify-mail-1-2-3-4", false},
                                                {"data/notify-mail-", false},
                                                {"data/my-notify-mail-1", true},
                                                {"notify-mail-1-2-3-4", true}};
  for (const auto& [path, stays] : files) test::WriteFile(path, "");
  ASSERT_EQ(::symlink("../notify-mail-1-2-3-4", "data/notify-mail-link"), 0);
  ClearSpool(&test::FakeHost::Entry);
  EXPECT_NE(::access("data/notify-mail-link", F_OK), 0);
  for (const auto& [path, stays] : files) EXPECT_EQ(test::FileExists(path), stays) << path;
  EXPECT_TRUE(test::FileExists("data/notify-mail-folder"));
  // A folder behind a link is somebody else's.
  test::WriteFile("data/notify-mail-5", "");
  ASSERT_EQ(::rename("data", "others"), 0);
  ASSERT_EQ(::symlink("others", "data"), 0);
  ClearSpool(&test::FakeHost::Entry);
  EXPECT_TRUE(test::FileExists("data/notify-mail-5"));
  EXPECT_TRUE(host.Log().empty());
}

}  // namespace
}  // namespace tvx
