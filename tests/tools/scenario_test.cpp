// What a scenario file may hold, and what is said about one that cannot be used.
#include "simulated_host/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "support/temporary_folder.h"

namespace tvx::tool {
namespace {

using testing::StartsWith;

TEST(Scenario, FaultsAreToldWithFileAndLine) {
  const test::TemporaryFolder folder;
  mkdir("folder", 0700);
  test::WriteFile("empty.xml", "");
  const struct {
    const char* text;
    const char* told;
  } cases[] = {
      {"\n# a comment\n  frobnicate", "a.steps:3: unknown step \"frobnicate\""},
      {"event nowhere.xml", "a.steps:1: cannot read nowhere.xml: No such file or directory"},
      {"tick\nevent folder", "a.steps:2: cannot read folder: Is a directory"},
      {"system", "a.steps:1: \"system\" is followed by a file name"},
      {"tick tock", "a.steps:1: nothing can follow \"tick\""},
      {"wait", "a.steps:1: \"wait\" is followed by seconds, \"idle\" or \"delivered N\", not \"\""},
      {"wait -1", "a.steps:1: \"wait\" is followed by seconds, \"idle\""},
      {"wait 1 minute", "a.steps:1: nothing can follow \"wait 1\""},
      {"wait nan", "a.steps:1: \"wait\" is followed by seconds"},
      {"wait 1e300", "a.steps:1: nobody waits longer than a year"},
      {"wait delivered 0", "a.steps:1: \"wait delivered\" is followed by a number from 1"},
      {"mail-server away", "a.steps:1: \"mail-server\" is followed by \"up\" or \"down\""},
      {"mail-server up", "a.steps:1: a step with the mail server, but --mail-server is missing"},
      {"camera 66049 vp9", "a.steps:1: a camera's codec is h264, mpeg4 or jpeg, not \"vp9\""},
      {"camera 66049/1x h264", "a.steps:1: \"66049/1x\" is no stream"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.text);
    test::WriteFile("a.steps", one.text);
    try {
      ReadScenario("a.steps", false);
      ADD_FAILURE() << "nothing is said";
    } catch (const ScenarioError& error) {
      EXPECT_THAT(error.what(), StartsWith(one.told));
    }
  }
  test::WriteFile("a.steps", "event empty.xml\r\n wait 0.5 \nwait idle\nmail-server up");
  EXPECT_EQ(ReadScenario("a.steps", true).size(), 4u);
}

}  // namespace
}  // namespace tvx::tool
