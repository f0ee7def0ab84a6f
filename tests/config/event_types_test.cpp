#include "config/event_types.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "config/event_reference.h"
#include "config/xml_document.h"

namespace tvx {
namespace {

TEST(EventTypes, HaveTheirNamesAndGroups) {
  EXPECT_EQ(EventTypeName(0), "Invalid");
  EXPECT_EQ(EventTypeName(15), "Security Integrations Health");
  EXPECT_EQ(EventTypeName(18), "Analytic");
  EXPECT_EQ(EventTypeName(33), "Serial Port Connection");
  EXPECT_EQ(EventTypeName(34), "Record Alarm");
  EXPECT_EQ(EventTypeName(35), "Unknown");
  EXPECT_EQ(EventTypeName(-1), "Unknown");

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

TEST(EventReferences, NeedBothAttributesAndMaskAnalytics) {
  struct Case {
    const char* xml;
    std::uint32_t source;
    std::int32_t type;
  };
  for (const Case& c :
       {Case{"<E ID='66049' Type='2'/>", 66049, 2},
        Case{"<E ID='4026597377' Type='18'/>", 0x00010001, 18},
        Case{"<E ID='4026597377' Type='2'/>", 0xF0010001, 2}, Case{"<E ID='66049'/>", 0, 0},
        Case{"<E Type='2'/>", 0, 0}, Case{"<E ID='66049' Type='motion'/>", 0, 0}}) {
    const ParsedDocument parsed = ParseDocument(c.xml, std::string(c.xml).size());
    const EventReference reference = ReadEventReference(parsed.document->RootElement());
    EXPECT_EQ(reference, (EventReference{{c.source}, c.type})) << c.xml;
  }
  EXPECT_EQ(ReadEventReference(nullptr), EventReference{});
}

TEST(EventReferences, ASourceGroupKeepsTheLowBitsOfItsId) {
  const std::string xml = "<SourceGroup ID='259'/>";
  const ParsedDocument parsed = ParseDocument(xml.data(), xml.size());
  EXPECT_EQ(ReadSourceGroupReference(parsed.document->RootElement()),
            (EventReference{{0xA0003}, 12}));
  EXPECT_EQ(ReadSourceGroupReference(nullptr), (EventReference{{0xA0000}, 12}));
}

}  // namespace
}  // namespace tvx
