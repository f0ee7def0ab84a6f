#include "config/config_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "config/notify_writer.h"
#include "config/xml_document.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

LoadOutcome Load(NotifyConfig& config) {
  return TakeConfigDocument(ReadConfigFile(kConfigFile), config);
}

TEST(ConfigFile, RejectedFilesLeaveTheDefaultsAndAreKeptBeside) {
  const test::TemporaryFolder folder;
  NotifyConfig config;
  EXPECT_EQ(Load(config), LoadOutcome::Missing);
  test::WriteFile(kConfigFile, "<tDVR><Notify ID='786432' MaxRetryQueue='7'><Servers/></Notify>");
  EXPECT_EQ(Load(config), LoadOutcome::Rejected);
  EXPECT_EQ(config.MaxRetryQueue, 100);
  EXPECT_TRUE(KeepRejectedFile(kConfigFile));
  EXPECT_TRUE(test::FileExists("notify.xml.rejected"));
  ASSERT_EQ(::mkfifo(kConfigFile, 0600), 0);  // would be waited for
  EXPECT_EQ(Load(config), LoadOutcome::Rejected);
  ASSERT_EQ(std::remove(kConfigFile), 0);
  test::WriteFile(kConfigFile, std::string((16u << 20) + 1, ' '));
  EXPECT_EQ(Load(config), LoadOutcome::Rejected);
  // Neither the root's name nor its "Delta" is asked for.
  test::WriteFile(kConfigFile, "<any><Notify ID='786432'><Servers/><Profiles/></Notify></any>");
  EXPECT_EQ(Load(config), LoadOutcome::Loaded);
}

TEST(ConfigFile, IsReplacedWholeOrNotAtAllAndKeepsItsPermissions) {
  const test::TemporaryFolder folder;
  const auto document = BuildNotifyDocument(NotifyConfig{});
  struct stat status {};
  ASSERT_TRUE(SaveConfigFile(kConfigFile, *document));
  ASSERT_EQ(::stat(kConfigFile, &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0600u);  // it may hold passwords
  ASSERT_EQ(::chmod(kConfigFile, 0640), 0);
  ASSERT_TRUE(SaveConfigFile(kConfigFile, *document));
  ASSERT_EQ(::stat(kConfigFile, &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0640u);

  test::WriteFile(kConfigFile, "as it was");
  ASSERT_EQ(::mkdir("notify.xml.new", 0700), 0);  // nothing can be written beside
  EXPECT_FALSE(SaveConfigFile(kConfigFile, *document));
  EXPECT_EQ(test::ReadFile(kConfigFile), "as it was");
  EXPECT_FALSE(SaveConfigFile("missing/notify.xml", *document));
}

}  // namespace
}  // namespace tvx
