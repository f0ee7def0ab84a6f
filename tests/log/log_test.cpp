#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "log/deferred_log.h"
#include "log/log_impl.h"
#include "support/fake_host.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

TEST(HostLog, SendsLinesOf511CharactersAtMostWithTheirLevel) {
  test::FakeHost host;
  const std::string text(600, 'x');
  HostLog(kModuleId, &test::FakeHost::Entry, LogLevel::Warning, "%d%s", 1, text.c_str());
  HostLogText(kModuleId, &test::FakeHost::Entry, LogLevel::Information, text);
  HostLogText(kModuleId, &test::FakeHost::Entry, LogLevel::Error, {"no %s\0 beyond", 13});
  DeferredLog deferred;
  deferred.Add(LogLevel::Error, "%d%s", 1, text.c_str());
  deferred.AddText(LogLevel::Warning, "\rno\n%s\x7F");
  for (int twice = 0; twice < 2; ++twice) deferred.Write(&test::FakeHost::Entry);
  const std::string cut = "1" + text.substr(0, 510);
  EXPECT_EQ(host.Log(),
            (std::vector<test::LogLine>{
                {50, cut}, {25, text.substr(89)}, {75, "no %s"}, {75, cut}, {50, " no %s "}}));
  EXPECT_TRUE(host.Problems().empty());                   // the length counts the NUL
  HostLog(kModuleId, nullptr, LogLevel::Error, "%d", 1);  // before the host is known
  HostLogText(kModuleId, nullptr, LogLevel::Error, "text");
}

TEST(LogImpl, AppendsToItsFileWhateverBecomesOfIt) {
  const test::TemporaryFolder folder;
  LogImpl logger;
  test::WriteFile("debugsrvlog.txt", "before, ");
  logger.Stream() << "lines" << std::flush;
  EXPECT_EQ(test::ReadFile("debugsrvlog.txt"), "before, lines");
  std::remove("debugsrvlog.txt");
  logger.Stream() << "anew" << std::flush;
  logger.Stream().setstate(std::ios::badbit);
  logger.Stream() << ", still" << std::flush;
  EXPECT_EQ(test::ReadFile("debugsrvlog.txt"), "anew, still");
  logger.SetFileName("missing/log.txt");
  EXPECT_TRUE(logger.Stream().fail());
  logger.SetFileName("log.txt");
  logger.Stream() << "other" << std::flush;
  EXPECT_EQ(test::ReadFile("log.txt"), "other");
}

}  // namespace
}  // namespace tvx
