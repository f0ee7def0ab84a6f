#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "log/deferred_log.h"
#include "log/host_log.h"
#include "log/log_impl.h"
#include "support/fake_host.h"
#include "support/temporary_folder.h"

namespace tvx {
namespace {

TEST(HostLog, SendsLinesOf511CharactersAtMostWithTheirLevel) {
  test::FakeHost host;
  const auto entry = &test::FakeHost::Entry;
  const std::string text(600, 'x');
  HostLog(kModuleId, entry, LogLevel::Warning, "%s", text.c_str());
  HostLog(kModuleId, entry, LogLevel::Information, "%s", text.substr(89).c_str());
  HostLog(kModuleId, entry, LogLevel::Error, "%d and \"%s\"", 7, "text");
  HostLogText(kModuleId, entry, LogLevel::Warning, text);
  HostLogText(kModuleId, entry, LogLevel::Error, {"no %s\0 beyond", 13});
  DeferredLog deferred;
  deferred.Add(LogLevel::Information, "%d%s", 1, text.c_str());
  deferred.AddText(LogLevel::Error, "no %s");
  EXPECT_EQ(host.Log().size(), 5u);
  for (int twice = 0; twice < 2; ++twice) deferred.Write(entry);
  const std::string longest = text.substr(0, 511);
  EXPECT_EQ(host.Log(), (std::vector<test::LogLine>{{50, longest},
                                                    {25, longest},
                                                    {75, "7 and \"text\""},
                                                    {50, longest},
                                                    {75, "no %s"},
                                                    {25, "1" + text.substr(0, 510)},
                                                    {75, "no %s"}}));
  EXPECT_TRUE(host.Problems().empty());  // the length counts the NUL

  // Before the host is known there is nobody to tell.
  HostLog(kModuleId, nullptr, LogLevel::Error, "%d", 1);
  HostLogText(kModuleId, nullptr, LogLevel::Error, "text");
  EXPECT_EQ(host.Log().size(), 7u);
}

TEST(LogImpl, AppendsToItsFileWhateverBecomesOfIt) {
  const test::TemporaryFolder folder;
  LogImpl logger;
  const auto write = [&](const char* text) {
    MutexLock lock(logger.GetMutex());
    logger.Stream() << text << std::flush;
  };
  EXPECT_FALSE(test::FileExists("debugsrvlog.txt"));  // opened by the first write
  test::WriteFile("debugsrvlog.txt", "before\n");
  write("line");
  write("s");
  EXPECT_EQ(test::ReadFile("debugsrvlog.txt"), "before\nlines");
  std::remove("debugsrvlog.txt");
  write("anew");
  logger.Stream().setstate(std::ios::badbit);
  write(", still");
  EXPECT_EQ(test::ReadFile("debugsrvlog.txt"), "anew, still");

  logger.SetFileName("log.txt");
  write("other");
  EXPECT_EQ(test::ReadFile("log.txt"), "other");
  logger.SetFileName("missing/log.txt");
  EXPECT_TRUE(logger.Stream().fail());
  logger.SetFileName("log.txt");
  write(" again");
  EXPECT_EQ(test::ReadFile("log.txt"), "other again");
  EXPECT_EQ(GetLogger(), GetLogger());
}

}  // namespace
}  // namespace tvx
