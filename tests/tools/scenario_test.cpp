// What is said about a scenario file that cannot be used.
#include "simulated_host/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/temporary_folder.h"

namespace tvx::tool {
namespace {

TEST(Scenario, FaultsAreToldWithFileAndLine) {
  const test::TemporaryFolder folder;
  const struct {
    const char* text;
    const char* told;
  } cases[] = {
      {"\n# a comment\n  frobnicate", "3: unknown step \"frobnicate\""},
      {"event nowhere.xml", "1: cannot read nowhere.xml: No such file or directory"},
      {"tick\nevent /", "2: cannot read /: it is no regular file"},
      {"system", "1: \"system\" is followed by a file name"},
      {"tick tock", "1: nothing can follow \"tick\""},
      {"wait", "1: \"wait\" is followed by seconds, \"idle\" or \"delivered N\", not \"\""},
      {"wait 1 minute", "1: nothing can follow \"wait 1\""},
      {"wait nan", "1: \"wait\" is followed by seconds"},
      {"wait 1e300", "1: nobody waits longer than a year"},
      {"wait delivered 1x", "1: \"wait delivered\" is followed by a number from 1"},
      {"mail-server away", "1: \"mail-server\" is followed by \"up\" or \"down\""},
      {"mail-server up", "1: a step with the mail server, but --mail-server is missing"},
      {"camera 66049 vp9", "1: a camera's codec is h264, mpeg4 or jpeg, not \"vp9\""},
      {"camera 66049/1x h264", "1: \"66049/1x\" is no stream"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.text);
    test::WriteFile("a.steps", one.text);
    try {
      ReadScenario("a.steps", false);
      ADD_FAILURE() << "nothing is said";
    } catch (const ScenarioError& error) {
      EXPECT_THAT(error.what(), testing::StartsWith("a.steps:" + std::string(one.told)));
    }
  }
  test::WriteFile("empty.xml", "");
  test::WriteFile("a.steps", "event empty.xml\r\n wait 0.5 \nwait idle\nmail-server up");
  EXPECT_EQ(ReadScenario("a.steps", true).size(), 4u);
}

}  // namespace
}  // namespace tvx::tool
