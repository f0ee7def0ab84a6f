#include "config/system_settings.h"

#include <gtest/gtest.h>

#include "config/system_document.h"

namespace tvx {
namespace {

using test::SystemDocument;

TEST(SystemSettings, PreAlarmsAreThoseWithBothNumbers) {
  const SystemDocument document(R"(
    <Events><Event ID="7" PreAlarm="5"/><Event ID="8"/><Event PreAlarm="9"/></Events>
    <Events><Other ID="-3" PreAlarm="0"/><Event ID="x" PreAlarm="1"/><Event ID="1" PreAlarm=""/>
      <Event ID="7" PreAlarm="6"/></Events>)");
  const std::vector<std::pair<std::int32_t, std::int32_t>> expected = {{7, 5}, {-3, 0}, {7, 6}};
  EXPECT_EQ(ReadPreAlarms(document.Root()), expected);
}

TEST(SystemSettings, SecondReviewerIsOnOffOrNotSaid) {
  const struct {
    const char* content;
    std::optional<bool> expected;
  } kCases[] = {
      {"", std::nullopt},
      {"<SecondReviewer Enabled='1'/>", std::nullopt},
      {"<Users><SecondReviewer/></Users>", std::nullopt},
      {"<Users><SecondReviewer Enabled='yes'/></Users>", std::nullopt},
      {"<Users><SecondReviewer Enabled='0'/></Users>", false},
      {"<Users><SecondReviewer Enabled='-2'/></Users>", true},
      {"<Users/><Users><SecondReviewer Enabled='x'/><SecondReviewer Enabled='1'/></Users>", true},
  };
  for (const auto& each : kCases) {
    const SystemDocument document(each.content);
    EXPECT_EQ(ReadSecondReviewer(document.Root()), each.expected) << each.content;
  }
}

}  // namespace
}  // namespace tvx
