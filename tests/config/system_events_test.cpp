#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <map>
#include <string>
#include <vector>

#include "config/event_action_table.h"
#include "config/event_source_key.h"
#include "config/parse.h"
#include "config/system_settings.h"

namespace tvx {
namespace {

// Elements in short: "D65536(N2(V3))" is a device list of part 65536 with device 2 with video input
// 3. A letter without a number has no such attribute.
std::string Elements(const char*& at) {
  static const std::map<char, std::array<const char*, 3>> kForms = {
      {'D', {"<Devices", "ID", "</Devices>"}},
      {'A', {"<Analytics", "ID", "</Analytics>"}},
      {'G', {"<SourceGroup", "ID", "</SourceGroup>"}},
      {'E', {"<Entry", "", "</Entry>"}},
      {'N', {"<Device", "Number", "</Device>"}},
      {'C', {"<Context", "Number", "</Context>"}},
      {'I', {"<Input", "Number", "</Input>"}},
      {'V', {"<Video><Input", "Number", "</Input></Video>"}},
      {'T', {"<Trigger><Input", "Number", "</Input></Trigger>"}},
      {'H', {"<Codec><Encoder><Channel", "Number", "</Channel></Encoder></Codec>"}},
      {'X', {"<Action", "", "</Action>"}},
      {'M', {"<Notify", "", "</Notify>"}},
      {'O', {"<AnyName", "", "</AnyName>"}},
  };
  std::string xml;
  while (*at != '\0' && *at != ')') {
    const auto& form = kForms.at(*at++);
    std::string value;
    while (*at == '-' || std::islower(*at) != 0 || std::isdigit(*at) != 0) value += *at++;
    xml += form[0];
    if (!value.empty()) xml += std::string(" ") + form[1] + "='" + value + "'";
    xml += '>';
    if (*at == '(') xml += Elements(++at), ++at;
    xml += form[2];
  }
  return xml;
}

ParsedDocument Document(const std::string& notation) {
  const char* at = notation.c_str();
  return test::Parse(test::SystemDocument(Elements(at)));
}

TEST(EventSourceKey, IsFoundInTheEventsElement) {
  const struct {
    const char* what;
    std::uint32_t key;
    const char* event;
  } kCases[] = {
      {"nothing", 0, ""},
      {"video input", 0x00010203, "D65536(N2(V3))"},
      {"beside its device", 0x00010203, "D65536(N2)V3"},
      {"in the list of devices", 0x00010203, "D65536(V3N2)"},
      {"in a context", 0x40010203, "D65536(N2(C4(V3)))"},
      {"beside its context", 0x40010203, "D65536(N2(V3))C4"},
      {"in the second context", 0x50010203, "D65536(N2(C4C5(V3)))"},
      {"a context in a context stays closed", 0, "D65536(N2(C4(C5(V3))))"},
      {"context that is no number", 0x00010203, "D65536(N2(CxV3))"},
      {"the first in document order", 0x00010203, "D65536(N2(V3))V9"},
      {"the first that has a number", 0x00010203, "D65536(NN2(VV3))"},
      {"the first list that names a device", 0x00020304, "D65536D131072(N3)V4"},
      {"excess bits go nowhere", 0x0FFFFF03, "D4294967295(N511(V259))"},
      {"negative numbers", 0x0FFFFFFF, "D-1(N-1(V-1))"},
      {"no list identifier", 0, "D(N2(V3))"},
      {"no device number", 0, "D65536(N(V3))"},
      {"other kind of device event", 0, "D65536(N2(T3))"},
      {"only below the action", 0, "D65536(N2)X(C1(V3))"},

      {"channel", 0x10010203, "D65536(N2(C1(H3)))"},
      {"channel, excess bits", 0xF0010203, "D65536(N258(C31(H259)))"},
      {"channel beside its context", 0x10010203, "D65536(N2(C1H3))"},
      {"channel of the default context", 0x00010203, "D65536(N2(C(H3)))"},
      {"channel of an unreadable context", 0, "D65536(N2(Cx(H3)))"},
      {"channel without a context", 0, "D65536(N2(H3))"},
      {"channel without a number", 0, "D65536(N2(C1(H)))"},
      {"an input goes before a channel", 0x10010204, "D65536(N2(C1(H3V4)))"},

      {"analytics", 0x00010203, "A65536(N2I3)"},
      {"analytics, nested, no sub-channel", 0x00010203, "A4026597376(N2(C1I3))"},
      {"analytics beside its device and input", 0x00010203, "A65536N2I3"},
      {"analytics with a video input", 0x00010203, "A65536(N2(V3))"},
      {"analytics without an input", 0, "A65536(N2)"},
      {"devices go before analytics", 0, "D65536(N2)A65536(N2I3)"},
      {"analytics when the devices name none", 0x00010203, "DA65536(N2I3)"},
  };
  for (const auto& each : kCases) {
    EXPECT_EQ(EventSourceKey(*Document(each.event).Root()).value, each.key) << each.what;
  }
}

TEST(EventActionTable, HoldsTheSourcesOfNotifyingEventsAndGroups) {
  using Indexes = std::vector<std::uint32_t>;
  const struct {
    const char* what;
    Indexes sources;
    const char* events;
  } kCases[] = {
      {"each once, ascending, whatever the event's name",
       {2, 4},
       "O(D65536(N2(V4))X(M))O(D65536(N2(V2))X(M))O(D65536(N2(V4))X(M))"},
      {"any of several actions", {1}, "O(D65536(N2(V1))XX(OM))"},
      {"no action that notifies", {}, "O(D65536(N2(V1))X(O))O(D65536(N2(V1))M)"},
      {"no source", {}, "O(X(M))"},
      {"members of a group", {7, 8}, "G3(E(D65536(N2(V7)))E(D65536(N2(V8)))EI9)O(G3X(M))"},
      {"only its entries", {}, "G3(O(D65536(N2(V7))))O(G3X(M))"},
      {"described elsewhere", {7}, "O(GxG9G3X(M))G3(E(D65536(N2(V7))))"},
      {"the whole identifier counts",
       {7},
       "G259(E(D65536(N2(V7))))G3(E(D65536(N2(V8))))O(G259X(M))"},
      {"named by an event that does not notify", {}, "G3(E(D65536(N2(V7))))O(G3)"},
      {"not when the event has a source", {1}, "G3(E(D65536(N2(V7))))O(D65536(N2(V1))G3X(M))"},
  };
  for (const auto& each : kCases) {
    const char* at = each.events;
    // Groups are found in every list.
    const auto table = ReadEventActionTable(
        *test::Parse(test::SystemDocument("<Events/><Events>" + Elements(at) + "</Events>"))
             .Root());
    ASSERT_TRUE(table.has_value());
    Indexes sources;
    for (const SourceId source : table->sources) sources.push_back(source.Index());
    EXPECT_EQ(sources, each.sources) << each.what;
  }
  const ParsedDocument lists = test::Parse(test::SystemDocument(
      "<Events><Event><SourceGroup ID='3'/><Action><Notify/></Action></Event></Events><Events>"
      "<SourceGroup ID='3'><Entry><Devices ID='1'><Device Number='2'><Video><Input Number='5'/>"
      "</Video></Device></Devices></Entry></SourceGroup></Events>"));
  EXPECT_EQ(ReadEventActionTable(*lists.Root())->sources, std::set<SourceId>{SourceId{0x205}});
  EXPECT_FALSE(ReadEventActionTable(*Document("D65536").Root()).has_value()) << "says nothing";
}

TEST(SystemSettings, PreAlarmsAreThoseWithBothNumbers) {
  const ParsedDocument document = test::Parse(test::SystemDocument(R"(
    <Events><Event ID="7" PreAlarm="5"/><Event ID="8"/><Event PreAlarm="9"/></Events>
    <Events><Other ID="-3" PreAlarm="0"/><Event ID="x" PreAlarm="1"/><Event ID="1" PreAlarm=""/>
      <Event ID="7" PreAlarm="6"/></Events>)"));
  const std::vector<std::pair<std::int32_t, std::int32_t>> expected = {{7, 5}, {-3, 0}, {7, 6}};
  EXPECT_EQ(ReadPreAlarms(*document.Root()), expected);
}

TEST(SystemSettings, SecondReviewerIsOnOffOrNotSaid) {
  const struct {
    const char* content;
    std::optional<bool> expected;
  } kCases[] = {
      {"<SecondReviewer Enabled='1'/>", std::nullopt},
      {"<Users><SecondReviewer/><SecondReviewer Enabled='yes'/></Users>", std::nullopt},
      {"<Users><SecondReviewer Enabled='0'/></Users>", false},
      {"<Users><SecondReviewer Enabled='-2'/></Users>", true},
      {"<Users/><Users><SecondReviewer Enabled='x'/><SecondReviewer Enabled='1'/></Users>", true},
  };
  for (const auto& each : kCases) {
    const ParsedDocument document = test::Parse(test::SystemDocument(each.content));
    EXPECT_EQ(ReadSecondReviewer(*document.Root()), each.expected) << each.content;
  }
}

}  // namespace
}  // namespace tvx
