#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "log/host_log.h"
#include "log/log_impl.h"
#include "support/fake_host.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

TEST(HostLog, CutsALongLineTo511CharactersAndCountsItsEnd) {
  test::FakeHost host;
  const std::string text(600, 'x');
  HostLog(kModuleId, &test::FakeHost::Entry, LogLevel::Warning, "%s", text.c_str());
  HostLog(kModuleId, &test::FakeHost::Entry, LogLevel::Error, "%d and \"%s\"", 7, "text");
  EXPECT_EQ(host.Log(),
            (std::vector<test::LogLine>{{50, text.substr(0, 511)}, {75, "7 and \"text\""}}));
  EXPECT_TRUE(host.MalformedRequests().empty());  // the length counts the NUL
}

TEST(HostLog, BeforeTheHostIsKnownDoesNothing) {
  HostLog(kModuleId, nullptr, LogLevel::Error, "nobody hears this %d", 1);
}

TEST(LogImpl, OpensAtTheFirstWriteAndAppends) {
  const test::TemporaryFolder folder;
  test::WriteFile("notifylog.txt", "before\n");
  LogImpl logger;
  logger.SetFileName("notifylog.txt");
  EXPECT_FALSE(test::FileExists("debugsrvlog.txt"));
  {
    MutexLock lock(logger.GetMutex());
    logger.Stream() << "line" << std::flush;
  }
  EXPECT_EQ(test::ReadFile("notifylog.txt"), "before\nline");
}

TEST(LogImpl, ReopensAFileThatWasRemovedOrCouldNotBeOpened) {
  const test::TemporaryFolder folder;
  LogImpl logger;
  logger.Stream() << "lost" << std::flush;
  std::remove("debugsrvlog.txt");
  logger.Stream() << "kept" << std::flush;
  EXPECT_EQ(test::ReadFile("debugsrvlog.txt"), "kept");

  logger.SetFileName("missing/log.txt");
  EXPECT_TRUE(logger.Stream().fail());
  logger.SetFileName("log.txt");
  logger.Stream() << "again" << std::flush;
  EXPECT_EQ(test::ReadFile("log.txt"), "again");
}

}  // namespace
}  // namespace tvx
