#include "config/config_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <sstream>
#include <string>

#include "base/input_limits.h"
#include "config/notify_writer.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

LoadOutcome Load(NotifyConfig& config) {
  return TakeConfigDocument(ReadConfigFile(kConfigFile), config);
}

std::string Mode(const char* path) {
  struct stat status {};
  if (::lstat(path, &status) != 0) return "none";
  std::ostringstream mode;
  mode << std::oct << status.st_mode;
  return mode.str();
}

TEST(ConfigFile, IsLoadedMissingRejectedOrCannotBeRead) {
  const test::TemporaryFolder folder;
  NotifyConfig config;
  EXPECT_EQ(Load(config), LoadOutcome::Missing);
  const std::string block = "<any><Notify ID='786432'><Servers/><Profiles/></Notify></any>";
  const struct {
    std::string content;
    LoadOutcome outcome;
  } kCases[] = {
      {"<tDVR><Notify ID='786432' MaxRetryQueue='7'><Servers/></Notify></tDVR>",
       LoadOutcome::Rejected},
      {"", LoadOutcome::Rejected},
      {block + std::string(kMaxDocumentBytes - block.size(), ' '), LoadOutcome::Loaded},
      {block + std::string(kMaxDocumentBytes - block.size() + 1, ' '), LoadOutcome::Rejected},
  };
  for (const auto& each : kCases) {
    test::WriteFile(kConfigFile, each.content);
    EXPECT_EQ(Load(config), each.outcome) << each.content.substr(0, 60);
    EXPECT_EQ(config.MaxRetryQueue, 100) << "nothing is left of a rejected file";
  }
  ASSERT_EQ(::chmod(kConfigFile, 0640), 0);
  EXPECT_TRUE(KeepRejectedFile(kConfigFile));
  EXPECT_EQ(Mode("notify.xml.rejected"), "100640");
  ASSERT_EQ(::mkfifo(kConfigFile, 0600), 0);  // would be waited for
  EXPECT_EQ(Load(config), LoadOutcome::Rejected);
  ASSERT_EQ(std::remove(kConfigFile), 0);
  ASSERT_EQ(::symlink(kConfigFile, kConfigFile), 0);
  EXPECT_EQ(ReadConfigFile(kConfigFile).fault.text, "Too many levels of symbolic links");
  EXPECT_EQ(Load(config), LoadOutcome::Failed);
}

TEST(ConfigFile, IsReplacedWithItsPermissionsOrElseWrittenInPlace) {
  const test::TemporaryFolder folder;
  const auto document = BuildNotifyDocument(NotifyConfig{});
  const auto isSaved = [](const char* path) {
    return test::ReadFile(path).find("<?xml ?>") == 0 && Mode("notify.xml.new") != "100600";
  };
  EXPECT_EQ(SaveConfigFile(kConfigFile, *document), 0);
  EXPECT_EQ(Mode(kConfigFile), "100600");  // it may hold passwords
  ASSERT_EQ(::chmod(kConfigFile, 0640), 0);
  test::WriteFile("notify.xml.new", "left by a process that died");
  EXPECT_EQ(SaveConfigFile(kConfigFile, *document), 0);
  EXPECT_EQ(Mode(kConfigFile), "100640");
  EXPECT_EQ(Mode("notify.xml.new"), "none");

  ASSERT_EQ(std::rename(kConfigFile, "elsewhere.xml"), 0);
  ASSERT_EQ(::symlink("elsewhere.xml", kConfigFile), 0);
  for (const char* content : {"", "old"}) {  // behind a link, which may lead nowhere yet
    if (*content == '\0') std::remove("elsewhere.xml");
    if (*content != '\0') test::WriteFile("elsewhere.xml", content);
    EXPECT_EQ(SaveConfigFile(kConfigFile, *document), 0);
    EXPECT_EQ(Mode(kConfigFile), "120777");
    EXPECT_TRUE(isSaved("elsewhere.xml"));
  }
  EXPECT_TRUE(KeepRejectedFile(kConfigFile));
  EXPECT_EQ(Mode(kConfigFile) + Mode("elsewhere.xml.rejected"), "120777100600");

  ASSERT_EQ(std::remove(kConfigFile), 0);
  test::WriteFile(kConfigFile, std::string(9999, 'x'));
  ASSERT_EQ(::mkfifo("notify.xml.new", 0600), 0);  // neither waited for nor removed
  EXPECT_EQ(SaveConfigFile(kConfigFile, *document), 0);
  EXPECT_TRUE(isSaved(kConfigFile));
  EXPECT_EQ(SaveConfigFile("missing/notify.xml", *document), ENOENT);
  ASSERT_EQ(::mkdir("folder", 0700), 0);
  EXPECT_NE(SaveConfigFile("folder", *document), 0);
  EXPECT_EQ(Mode("folder.new"), "none");
}

TEST(ConfigFile, IsNotToBeRefusedByTheNextStart) {
  NotifyConfig config;
  config.webAddress = std::string(kMaxDocumentBytes / 6, '\n');  // each is written as "&#x0A;"
  EXPECT_STREQ(WhyNotReadAgain(*BuildNotifyDocument(config)), "it is larger than 16 MiB");
  config.webAddress.resize(100);
  EXPECT_EQ(WhyNotReadAgain(*BuildNotifyDocument(config)), nullptr);
}

}  // namespace
}  // namespace tvx
