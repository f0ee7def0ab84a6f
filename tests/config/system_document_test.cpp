// What a full system document says: sources and names, streams, groups, and which events notify.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "config/event_action_table.h"
#include "config/event_source_key.h"
#include "config/event_types.h"
#include "config/parse.h"
#include "config/source_text.h"
#include "config/system_settings.h"

namespace tvx {
namespace {

std::uint32_t Number(const std::string& hex) {
  return static_cast<std::uint32_t>(std::stoul(hex, nullptr, 16));
}

std::string Hex(std::uint32_t number) {
  std::ostringstream text;
  text << std::hex << number;
  return text.str();
}

std::string Text(const EventReference& reference) {
  return Hex(reference.source.value) + '/' + std::to_string(reference.type) + ' ';
}

// Elements in short: "D65536(N2(V3))" is a device list of part 65536 with device 2 with video input
// 3. A letter without a number has no such attribute.
std::string Elements(const char*& at) {
  static const std::map<char, const char*> kNames = {
      {'D', "Devices"}, {'N', "Device"},    {'C', "Context"},     {'I', "Input"}, {'V', "Input"},
      {'H', "Channel"}, {'A', "Analytics"}, {'G', "SourceGroup"}, {'E', "Entry"}, {'S', "Events"},
      {'O', "AnyName"}, {'X', "Action"},    {'M', "Notify"}};
  std::string xml;
  while (*at != '\0' && *at != ')') {
    const char letter = *at++;
    const std::string name = kNames.at(letter);
    std::string value;
    while (*at == '-' || std::islower(*at) != 0 || std::isdigit(*at) != 0) value += *at++;
    const bool isChannel = letter == 'H', isVideo = letter == 'V';
    xml += (isVideo ? "<Video><" : isChannel ? "<Codec><Encoder><" : "<") + name;
    if (!value.empty()) xml += (std::strchr("DAGO", letter) ? " ID='" : " Number='") + value + "'";
    xml += '>';
    if (*at == '(') xml += Elements(++at), ++at;
    xml += "</" + name + (isVideo ? "></Video>" : isChannel ? "></Encoder></Codec>" : ">");
  }
  return xml;
}

ParsedDocument Document(const std::string& notation) {
  const char* at = notation.c_str();
  return test::Parse(test::SystemDocument(Elements(at)));
}

SystemDirectory Directory(const std::string& content) {
  return SystemDirectory(*test::Parse(test::SystemDocument(content)).Root());
}

TEST(EventSourceKey, IsFoundInTheEventsElement) {
  const auto row = [](const std::string& event) {
    return Hex(EventSourceKey(*Document(event).Root()).value);
  };
  test::ExpectRows(row, R"(
10203 <= D65536(N2(V3)) & D65536(N2)V3 & D65536(V3N2) & D65536(N2(CxV3)) & D65536(N2(V3))V9
10203 <= D65536(NN2(VV3)) & D65536(N2(C(H3))) & A65536(N2I3) & A4026597376(N2(C1I3)) & A65536N2I3
10203 <= A65536(N2(V3)) & DA65536(N2I3)   40010203 <= D65536(N2(C4(V3))) & D65536(N2(V3))C4
50010203 <= D65536(N2(C4C5(V3)))
0 <= D65536(N2(C4(C5(V3)))) & D(N2(V3)) & D65536(N(V3)) & D65536(N2(I3)) & D65536(N2)X(C1(V3))
0 <= D65536(N2(Cx(H3))) & D65536(N2(H3)) & D65536(N2(C1(H))) & A65536(N2) & D65536(N2)A65536(N2I3)
20304 <= D65536D131072(N3)V4   fffff03 <= D4294967295(N511(V259))   fffffff <= D-1(N-1(V-1))
10010203 <= D65536(N2(C1(H3))) & D65536(N2(C1H3))   f0010203 <= D65536(N258(C31(H259)))
10010204 <= D65536(N2(C1(H3V4))))");
}

// A group's whole identifier counts, whatever list describes it, for events without a source.
TEST(EventActionTable, HoldsTheSourcesOfNotifyingEventsAndGroups) {
  const auto row = [](const std::string& events) {
    const auto table = ReadEventActionTable(*Document(events).Root());
    if (!table) return std::string("nothing said");
    std::string sources;
    for (const SourceId source : table->sources) sources += Hex(source.value) + ' ';
    return sources;
  };
  test::ExpectRows(row, R"(
nothing said <= D65536
<= S & S(O(D0(N0(V1))X(O))O(D0(N0(V1))M)O(X(M))) & S(G3(O(D0(N0(V7))))O(G3X(M)))
<= S(G3(E(D0(N0(V7))))O(G3))   2 4 <= S(O(D0(N0(V4))X(M))O(D0(N0(V2))X(M))O(D0(N0(V4))X(M)))
1 <= S(O(D0(N0(V1))XX(OM))) & S(G3(E(D0(N0(V7))))O(D0(N0(V1))G3X(M)))
7 8 <= S(G3(E(D0(N0(V7)))E(D0(N0(V8)))E)O(G3X(M)))
7 <= S(O(GxG9G3X(M)))S(G3(E(D0(N0(V7))))) & S(G259(E(D0(N0(V7))))G3(E(D0(N0(V8))))O(G259X(M))))");
}

TEST(SystemSettings, TakeEntriesWithTheirNumbers) {
  const auto row = [](const std::string& content) {
    const ParsedDocument document = test::Parse(test::SystemDocument(content));
    std::string text;
    for (const auto& [id, seconds] : ReadPreAlarms(*document.Root())) {
      text += std::to_string(id) + ':' + std::to_string(seconds);
    }
    const auto reviewer = ReadSecondReviewer(*document.Root());
    return text + (!reviewer ? "" : *reviewer ? "on" : "off");
  };
  test::ExpectRows(row, R"(
7:5 <= <Events><Event ID="7" PreAlarm="5"/><Event ID="8"/><Event PreAlarm="9"/></Events>
-3:0 <= <Events/><Events><Other ID="-3" PreAlarm="0"/><Event ID="x" PreAlarm="1"/></Events>
1:67:6 <= <Events><Event ID="1" PreAlarm="6"/><Event ID="7" PreAlarm="6"/></Events>
<= <SecondReviewer Enabled='1'/><Users><SecondReviewer/><SecondReviewer Enabled='yes'/></Users>
off <= <Users><SecondReviewer Enabled='0'/></Users>
on <= <Users/><Users><SecondReviewer Enabled='x'/><SecondReviewer Enabled='-2'/></Users>)");
}

TEST(EventTypes, HaveTheirNamesGroupsAndSources) {
  std::string names;
  for (int type = -1; type <= 35; ++type) {
    names += std::string(EventTypeName(type)) + (IsVideoEvent(type) ? "-V/" : "/") +
             (IsSystemEvent(type) ? "S/" : "") + (IsDeviceHealthEvent(type) ? "D/" : "");
  }
  EXPECT_EQ(
      names,
      "Unknown/Invalid/Video Loss-V/Video Motion-V/Input Trigger/Pos Port/Pos Profile/Button/"
      "Temperature/D/Storage/S/IP Connection-V/Record Content Age/S/Archive Content Age/S/"
      "Source Group/Power Supply/D/Outbound Connection/Security Integrations Health/"
      "Soft Trigger/License/S/Analytic-V/Device Failure/D/Audio Connection/Device Connection/"
      "Throttle/S/Fan/D/Time Trigger/Hardware Temperature/S/Hardware Fan/S/Hardware Voltage/S/"
      "Archive Connection/S/Archive Task/S/Security Integration Connection/"
      "Security Integration Alarm/Security Integration Alert/Serial Port Connection/"
      "Record Alarm/Unknown/");
  // Type and source.
  const SystemDirectory directory(*test::Parse(test::kSampleSystem).Root());
  const auto text = [&](const std::string& row) {
    return SourceText(directory, {Number(row.substr(row.find(' ')))}, std::stoi(row));
  };
  test::ExpectRows(text, R"(
Gate camera <= 1 10201 & 2 10201 & 9 10201 & 18 10201
Gate contact <= 3 10203 & 31 10203 & 32 10203   Till 4 <= 4 30102 & 5 20401   Button 5 <= 6 10500
Device Temperature 5 <= 7 10500   Power Supply 5 <= 13 10500   Device Failure 5 <= 19 10500
Device Fan 255 <= 23 1ff00   Perimeter <= 12 a0003
North gate <= 14 10201 & 21 10201 & 30 10201 & 33 10201   Panic <= 16 40001
Gate microphone <= 20 10201   Night <= 24 50001
<= 8 10201 & 10 1 & 11 1 & 17 1 & 22 1 & 25 1 & 26 1 & 27 1 & 28 1 & 29 1
Unknown <= -1 10201 & 0 10201 & 15 10201 & 34 10201 & 35 10201 & 1 0 & 8 0)");
}

TEST(EventReferences, NeedBothAttributesAndMaskAnalytics) {
  const auto row = [](const std::string& xml) {
    const ParsedDocument parsed = test::Parse(xml);
    return Text(ReadEventReference(parsed.document->RootElement()));
  };
  test::ExpectRows(row, R"(
10201/2 <= <E ID='66049' Type='2'/>   10001/18 <= <E ID='4026597377' Type='18'/>
f0010001/2 <= <E ID='4026597377' Type='2'/>
0/0 <= <E ID='66049'/> & <E Type='2'/> & <E ID='66049' Type='motion'/>)");
  EXPECT_EQ(Text(ReadEventReference(nullptr)) + Text(ReadSourceGroupReference(nullptr)),
            "0/0 a0000/12 ");
}

// A name of the directory: the kind, by its place in the enumeration, and the identifier.
std::string Name(const SystemDirectory& directory, const std::string& row) {
  return directory.Name(static_cast<NameKind>(row[0] - '0'), {Number(row.substr(2))});
}

TEST(SystemDirectory, NamesWhatTheDocumentNamesOrHasReadableStandIns) {
  const SystemDirectory sample(*test::Parse(test::kSampleSystem).Root());
  const auto sampleName = [&](const std::string& row) { return Name(sample, row); };
  test::ExpectRows(sampleName, R"(
North gate <= 0 30010205   Device 3 <= 0 00010300   Video Input 2-1 <= 1 10010201
Audio Input 2-1 <= 2 10010201   Gate contact <= 3 50010203   Trigger Input 2-1 <= 3 00010201
Siren <= 4 00010201   Trigger Output 2-3 <= 4 00010203
Till 4 <= 5 00020400 & 5 00020409 & 5 00030107   Point of Sale 1-3 <= 5 00030103
Source Group 3 <= 6 000B0003   Panic <= 7 00040901   Soft Trigger 2 <= 7 F001FF02
Time Trigger 2 <= 8 F001FF02)");
  const SystemDirectory odd = Directory(R"(
    <Devices>
      <Device Number="1" Name=""/><Device Name="No number"/><Device Number="x" Name="Bad number"/>
      <Device Number="1" Name="Second"/><Device Number="1" Name="Third"/><Device Number="3"><Context>
        <Video><Input Number="1" Name="No sub-channel"/></Video>
        <Video><Input Number="0" Name="Second list"/></Video></Context>
        <Context Number="15"><Video><Input Number="1" Name="Last sub-channel"/></Video></Context>
        <Context Number="x"><Video><Input Number="7" Name="Odd sub-channel"/></Video></Context>
        <Trigger><Input Number="258" Name="Excess bits"/></Trigger></Device>
    </Devices>
    <Devices ID="4294901760"><Device Number="5" Name="Unsigned"/></Devices>
    <Devices ID="-65536"><Device Number="6" Name="Signed"/></Devices>
    <Serial ID="196608"><Input Device="1" StreamID="1" Profile="9"/>
      <Input StreamID="2" Profile="4"/><Input Device="1" StreamID="3"/>
      <Input Device="1" StreamID="4" Profile="4"/></Serial>
    <POSATM ID="131072"><Profile Number="4" Name=""/></POSATM>
    <POSATM ID="131073"><Profile Number="4" Name="Later section"/></POSATM>
    <Events><SourceGroup Name="No ID"/><SourceGroup ID="259" Name="Low bits"/></Events>)");
  const auto oddName = [&](const std::string& row) { return Name(odd, row); };
  test::ExpectRows(oddName, R"(
Second <= 0 00000100   Device 0 <= 0 0   Unsigned <= 0 0FFF0500   Signed <= 0 0FFF0600
No sub-channel <= 1 00000301   Second list <= 1 00000300   Video Input 3-9 <= 1 00000309
Last sub-channel <= 1 F0000301   Odd sub-channel <= 1 00000307   Excess bits <= 3 00000302
Point of Sale 1-1 <= 5 00030101   Point of Sale 1-3 <= 5 00030103   Later section <= 5 00030104
Source Group 0 <= 6 000A0000   Low bits <= 6 000A0003)");
}

// A source must never be shown by the frames of another camera.
TEST(SystemDirectory, FindsStreamsByIdentifierSourceAndCamera) {
  const SystemDirectory directory = Directory(R"(
    <Devices ID="65536"><Device Number="1"><Context Number="2">
        <Codec><Encoder><Channel Height="180"/></Encoder></Codec>
        <Video><Input Name="No number"/><Input Number="6"/><Input Number="5"/></Video></Context></Device>
      <Device Number="2"><Context><Codec><Encoder><Channel Width="x"/></Encoder>
          <Encoder><Channel ID="4026597377" Number="300"/></Encoder></Codec></Context><Context Number="1">
          <Codec><Encoder><Channel Number="0" Width="1" Standard="5"/></Encoder></Codec></Context></Device>
      <Device><Context><Codec><Encoder><Channel ID="99"/></Encoder></Codec></Context></Device>
      <Device Number="3"><Context><Codec><Encoder><Channel ID="7" Number="1"/><Channel ID="7" Number="2"/>
          <Channel ID="8" Number="1"/></Encoder></Codec></Context></Device></Devices>)");
  const auto found = [&](const std::string& what) {
    const std::uint32_t id = Number(what.substr(7));
    const auto streamId = static_cast<std::int32_t>(id);
    std::vector<const VideoStream*> streams = {directory.FindStream(streamId)};
    if (what[1] == 'o') streams = {directory.StreamOfSource({id})};
    if (what[1] == 'a') streams = directory.StreamsOfCamera(streamId);
    std::ostringstream text;
    for (const VideoStream* stream : streams) {
      if (stream == nullptr) return std::string("none");
      const StreamFormat& format = stream->format;
      text << Hex(static_cast<std::uint32_t>(format.ID)) << " #" << format.Number << ' '
           << format.Width << 'x' << format.Height << ':' << format.Standard << " of "
           << Hex(stream->source.value) << ' ';
    }
    return text.str();
  };
  test::ExpectRows(found, R"(
20010106 #-1 0x180:0 of 20010106 <= stream 20010106   10200 #-1 0x0:0 of 10200 <= stream 10200
f0010001 #300 0x0:0 of 1022c <= stream f0010001   none <= stream 99 & stream 63 & source 10302
7 #1 0x0:0 of 10301 <= stream 7 & source 10301   8 #1 0x0:0 of 10301 <= stream 8
10200 #-1 0x0:0 of 10200 10010200 #0 1x0:5 of 10010200 <= camera 50010200   <= camera 10201)");
}

TEST(SystemDirectory, HoldsTheMembersOfAGroupOnce) {
  const SystemDirectory directory(
      *Document("S(G3(E(D65536(N2(V1)))EE(D65536(N2))E(A4026597376(N2I1))E(D65536(N2(V1))))"
                "O(G4(E(D65536(N2(V1))))))S(G259(E(D65536(N9(C1(V1))))))")
           .Root());
  std::string members;
  for (const EventReference& member : directory.GroupMembers({0xA0003})) members += Text(member);
  EXPECT_EQ(members, "10201/1 10201/18 10010901/1 ");
  EXPECT_TRUE(directory.GroupMembers({0xA0004}).empty()) << "named by an event, not described";
}

}  // namespace
}  // namespace tvx
