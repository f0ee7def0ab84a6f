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
#include "support/temporary_folder.h"

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
  test::ExpectRows(row, test::Table(TABLES));
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
  test::ExpectRows(row, test::Table(TABLES));
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
  test::ExpectRows(row, test::Table(TABLES));
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
  const SystemDirectory directory(*test::Parse(test::ReadFile(SYSTEM)).Root());
  const auto text = [&](const std::string& row) {
    return SourceText(directory, {Number(row.substr(row.find(' ')))}, std::stoi(row));
  };
  test::ExpectRows(text, test::Table(TABLES));
}

TEST(EventReferences, NeedBothAttributesAndMaskAnalytics) {
  const auto row = [](const std::string& xml) {
    const ParsedDocument parsed = test::Parse(xml);
    return Text(ReadEventReference(parsed.document->RootElement()));
  };
  test::ExpectRows(row, test::Table(TABLES));
  EXPECT_EQ(Text(ReadEventReference(nullptr)) + Text(ReadSourceGroupReference(nullptr)),
            "0/0 a0000/12 ");
}

// A name of the directory: the kind, by its place in the enumeration, and the identifier.
std::string Name(const SystemDirectory& directory, const std::string& row) {
  return directory.Name(static_cast<NameKind>(row[0] - '0'), {Number(row.substr(2))});
}

TEST(SystemDirectory, NamesWhatTheDocumentNamesOrHasReadableStandIns) {
  const SystemDirectory sample(*test::Parse(test::ReadFile(SYSTEM)).Root());
  const auto sampleName = [&](const std::string& row) { return Name(sample, row); };
  test::ExpectRows(sampleName, test::Table(TABLES));
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
  test::ExpectRows(oddName, test::Table(TABLES, 2));
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
  test::ExpectRows(found, test::Table(TABLES));
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
