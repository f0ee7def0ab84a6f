#include "config/event_types.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "config/event_reference.h"
#include "config/parse.h"
#include "config/source_text.h"

namespace tvx {
namespace {

TEST(EventTypes, HaveTheirNamesAndGroups) {
  std::string names;
  for (int code = -2; code <= 35; ++code) names += EventTypeName(code) + '/';
  EXPECT_EQ(names,
            "Unknown/Unknown/Invalid/Video Loss/Video Motion/Input Trigger/Pos Port/Pos Profile/"
            "Button/Temperature/Storage/IP Connection/Record Content Age/Archive Content Age/"
            "Source Group/Power Supply/Outbound Connection/Security Integrations Health/"
            "Soft Trigger/License/Analytic/Device Failure/Audio Connection/Device Connection/"
            "Throttle/Fan/Time Trigger/Hardware Temperature/Hardware Fan/Hardware Voltage/"
            "Archive Connection/Archive Task/Security Integration Connection/"
            "Security Integration Alarm/Security Integration Alert/Serial Port Connection/"
            "Record Alarm/Unknown/");

  std::set<int> video, system, device;
  for (int code = -2; code < 40; ++code) {
    if (IsVideoEvent(code)) video.insert(code);
    if (IsSystemEvent(code)) system.insert(code);
    if (IsDeviceHealthEvent(code)) device.insert(code);
  }
  EXPECT_EQ(video, (std::set<int>{1, 2, 9, 18}));
  EXPECT_EQ(system, (std::set<int>{8, 10, 11, 17, 22, 25, 26, 27, 28, 29}));
  EXPECT_EQ(device, (std::set<int>{7, 13, 19, 23}));
}

TEST(EventTypes, SayHowASourceIsNamed) {
  const SystemDirectory directory(*test::Parse(test::kSampleSystem).Root());
  const struct {
    std::vector<std::int32_t> types;
    std::uint32_t source;
    const char* text;
  } kCases[] = {
      {{1, 2, 9, 18}, 0x00010201, "Gate camera"},
      {{1}, 0x10010201, "Video Input 2-1"},
      {{3, 31, 32}, 0x00010203, "Gate contact"},
      {{4}, 0x00030102, "Till 4"},
      {{5}, 0x00020401, "Till 4"},
      {{6}, 0x00010500, "Button 5"},
      {{7}, 0x00010500, "Device Temperature 5"},
      {{13}, 0x00010500, "Power Supply 5"},
      {{19}, 0x00010500, "Device Failure 5"},
      {{23}, 0x0001FF00, "Device Fan 255"},
      {{12}, 0x000A0003, "Perimeter"},
      {{14, 21, 30, 33}, 0x00010201, "North gate"},
      {{16}, 0x00040001, "Panic"},
      {{20}, 0x00010201, "Gate microphone"},
      {{24}, 0x00050001, "Night"},
      {{8, 10, 11, 17, 22, 25, 26, 27, 28, 29}, 0x00010201, ""},
      {{-1, 0, 15, 34, 35}, 0x00010201, "Unknown"},
      {{1, 6, 8}, 0, "Unknown"},
  };
  for (const auto& each : kCases) {
    for (const std::int32_t type : each.types) {
      EXPECT_EQ(SourceText(directory, {each.source}, type), each.text) << "type " << type;
    }
  }
}

TEST(EventReferences, NeedBothAttributesAndMaskAnalytics) {
  const struct {
    const char* xml;
    std::uint32_t source;
    std::int32_t type;
  } kCases[] = {
      {"<E ID='66049' Type='2'/>", 66049, 2},
      {"<E ID='4026597377' Type='18'/>", 0x00010001, 18},
      {"<E ID='4026597377' Type='2'/>", 0xF0010001, 2},
      {"<E ID='66049'/>", 0, 0},
      {"<E Type='2'/>", 0, 0},
      {"<E ID='66049' Type='motion'/>", 0, 0},
  };
  for (const auto& each : kCases) {
    const ParsedDocument parsed = test::Parse(each.xml);
    EXPECT_EQ(ReadEventReference(parsed.document->RootElement()),
              (EventReference{{each.source}, each.type}))
        << each.xml;
  }
  EXPECT_EQ(ReadEventReference(nullptr), EventReference{});
  const ParsedDocument group = test::Parse("<SourceGroup ID='259'/>");  // its low bits count
  EXPECT_EQ(ReadSourceGroupReference(group.document->RootElement()),
            (EventReference{{0xA0003}, 12}));
  EXPECT_EQ(ReadSourceGroupReference(nullptr), (EventReference{{0xA0000}, 12}));
}

}  // namespace
}  // namespace tvx
