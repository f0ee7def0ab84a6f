#include "config/system_directory.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/event_types.h"
#include "config/parse.h"

namespace tvx {
namespace {

using Kind = NameKind;

SystemDirectory Directory(const std::string& content) {
  return SystemDirectory(*test::Parse(test::SystemDocument(content)).Root());
}

std::string Names(const SystemDirectory& directory, Kind kind, std::vector<std::uint32_t> ids) {
  std::string names;
  for (const std::uint32_t id : ids)
    names += (names.empty() ? "" : "/") + directory.Name(kind, {id});
  return names;
}

// Which fields of an identifier count depends on the kind.
TEST(SystemDirectoryNames, AreThoseOfTheDocumentOrReadableStandIns) {
  const SystemDirectory sample(*test::Parse(test::kSampleSystem).Root());
  EXPECT_EQ(Names(sample, Kind::Device, {0x00010200, 0x30010205, 0x00010300}),
            "North gate/North gate/Device 3");
  EXPECT_EQ(Names(sample, Kind::VideoInput, {0x00010201, 0x10010201}),
            "Gate camera/Video Input 2-1");
  EXPECT_EQ(Names(sample, Kind::AudioInput, {0x00010201, 0x10010201}),
            "Gate microphone/Audio Input 2-1");
  EXPECT_EQ(Names(sample, Kind::TriggerInput, {0x00010203, 0x50010203, 0x00010201}),
            "Gate contact/Gate contact/Trigger Input 2-1");
  EXPECT_EQ(Names(sample, Kind::TriggerOutput, {0x00010201, 0x00010203}),
            "Siren/Trigger Output 2-3");
  // By its profile, whatever the index, by its stream and by its raw stream.
  EXPECT_EQ(Names(sample, Kind::PointOfSale,
                  {0x00020400, 0x00020409, 0x00030102, 0x00030107, 0x00030103}),
            "Till 4/Till 4/Till 4/Till 4/Point of Sale 1-3");
  EXPECT_EQ(Names(sample, Kind::SoftTrigger, {0x00040901, 0xF001FF02}), "Panic/Soft Trigger 2");
  EXPECT_EQ(Names(sample, Kind::TimeTrigger, {0x00050001, 0xF001FF02}), "Night/Time Trigger 2");
  EXPECT_EQ(Names(sample, Kind::SourceGroup, {0x000A0003, 0x000B0003}), "Perimeter/Source Group 3");
}

TEST(SystemDirectoryNames, OddEntriesAreSkippedOrFallBack) {
  const SystemDirectory odd = Directory(R"(
    <Devices>
      <Device Number="1" Name=""/><Device Name="No number"/><Device Number="x" Name="Bad number"/>
      <Device Number="1" Name="Second of its number"/><Device Number="1" Name="Third"/>
      <Device Number="3">
        <Context><Video><Input Number="1" Name="No sub-channel"/></Video>
                 <Video><Input Number="2" Name="Second list"/><Input Number="0" Name="Zeroth"/></Video></Context>
        <Context Number="15"><Video><Input Number="1" Name="Last sub-channel"/></Video></Context>
        <Context Number="x"><Video><Input Number="7" Name="Odd sub-channel"/></Video></Context>
        <Trigger><Input Number="258" Name="Excess bits"/></Trigger>
      </Device>
    </Devices>
    <Devices ID="4294901760"><Device Number="5" Name="Unsigned"/></Devices>
    <Devices ID="-65536"><Device Number="6" Name="Signed"/></Devices>
    <Serial ID="196608">
      <Input Device="1" StreamID="1" Profile="9"/><Input StreamID="2" Profile="4"/>
      <Input Device="1" StreamID="3"/><Input Device="1" StreamID="4" Profile="4"/>
    </Serial>
    <POSATM ID="131072"><Profile Number="4" Name=""/></POSATM>
    <POSATM ID="131073"><Profile Number="4" Name="Later section"/></POSATM>
    <Events><SourceGroup Name="No ID"/><SourceGroup ID="259" Name="Low bits"/></Events>)");
  EXPECT_EQ(Names(odd, Kind::Device, {0x00000100, 0, 0x0FFF0500, 0x0FFF0600}),
            "Second of its number/Device 0/Unsigned/Signed");
  EXPECT_EQ(Names(odd, Kind::VideoInput, {0x00000301, 0x00000302, 0xF0000301, 0x00000307}),
            "No sub-channel/Second list/Last sub-channel/Odd sub-channel");
  EXPECT_EQ(Names(odd, Kind::VideoInput, {0x00000300, 0x00000309}), "Zeroth/Video Input 3-9");
  EXPECT_EQ(Names(odd, Kind::TriggerInput, {0x00000302}), "Excess bits");
  // Of a profile that nobody described, without a profile, of one that is described later.
  EXPECT_EQ(Names(odd, Kind::PointOfSale, {0x00030101, 0x00030103, 0x00030104}),
            "Point of Sale 1-1/Point of Sale 1-3/Later section");
  EXPECT_EQ(Names(odd, Kind::SourceGroup, {0x000A0000, 0x000A0003}), "Source Group 0/Low bits");
}

// What a directory says of a stream, in one line.
std::string Text(const VideoStream* stream) {
  if (stream == nullptr) return "none";
  const StreamFormat& format = stream->format;
  return std::to_string(static_cast<std::uint32_t>(format.ID)) + " #" +
         std::to_string(format.Number) + ' ' + std::to_string(format.Width) + 'x' +
         std::to_string(format.Height) + " standard " + std::to_string(format.Standard) + " of " +
         std::to_string(stream->source.value);
}

std::string CameraText(const SystemDirectory& directory, std::uint32_t streamId) {
  std::string text;
  for (const auto* stream : directory.StreamsOfCamera(static_cast<std::int32_t>(streamId))) {
    text += Text(stream) + '/';
  }
  return text;
}

TEST(SystemDirectoryStreams, AreFoundByIdentifierSourceAndCamera) {
  const SystemDirectory directory(*test::Parse(test::kSampleSystem).Root());
  const std::string main = "66049 #1 1280x720 standard 5 of 66049";
  const std::string sub = "268501505 #1 320x180 standard 0 of 268501505";
  EXPECT_EQ(Text(directory.FindStream(0x00010201)), main);
  EXPECT_EQ(Text(directory.FindStream(0x10010201)), sub);
  EXPECT_EQ(Text(directory.FindStream(0x20010201)), "none");
  EXPECT_EQ(Text(directory.StreamOfSource({0x00010201})), main);
  EXPECT_EQ(Text(directory.StreamOfSource({0x10010201})), sub);
  EXPECT_EQ(Text(directory.StreamOfSource({0x00010202})), "none");
  EXPECT_EQ(CameraText(directory, 0x00010201), main + '/' + sub + '/');
  EXPECT_EQ(CameraText(directory, 0xF0010201), main + '/' + sub + '/');
  EXPECT_EQ(CameraText(directory, 0x00010202), "");
}

// A source must never be shown by the frames of another camera.
TEST(SystemDirectoryStreams, HaveDefaultsAndTheFirstOfAnIdentifierOrSourceCounts) {
  const SystemDirectory directory = Directory(R"(
    <Devices ID="65536">
      <Device Number="1"><Context Number="2">
        <Codec><Encoder><Channel Height="180"/></Encoder></Codec>
        <Video><Input Name="No number"/><Input Number="6"/><Input Number="5"/></Video>
      </Context></Device>
      <Device Number="2"><Context><Codec>
        <Encoder><Channel Width="x"/></Encoder>
        <Encoder><Channel ID="4026597377" Number="300"/></Encoder>
      </Codec></Context></Device>
      <Device><Context><Codec><Encoder><Channel ID="99"/></Encoder></Codec></Context></Device>
      <Device Number="3"><Context><Codec><Encoder>
        <Channel ID="7" Number="1"/><Channel ID="7" Number="2"/><Channel ID="8" Number="1"/>
      </Encoder></Codec></Context></Device>
    </Devices>)");
  EXPECT_EQ(Text(directory.StreamOfSource({0x20010106})),
            "536936710 #-1 0x180 standard 0 of 536936710");
  EXPECT_EQ(Text(directory.FindStream(0x00010200)), "66048 #-1 0x0 standard 0 of 66048");
  EXPECT_EQ(Text(directory.FindStream(static_cast<std::int32_t>(0xF0010001))),
            "4026597377 #300 0x0 standard 0 of 66092");
  EXPECT_EQ(Text(directory.FindStream(99)), "none") << "of a device without a number";
  EXPECT_EQ(Text(directory.FindStream(7)), "7 #1 0x0 standard 0 of 66305");
  EXPECT_EQ(Text(directory.FindStream(8)), "8 #1 0x0 standard 0 of 66305");
  EXPECT_EQ(directory.StreamOfSource({66305})->format.ID, 7);
  EXPECT_EQ(Text(directory.StreamOfSource({66306})), "none");
  EXPECT_EQ(directory.StreamsOfCamera(7).size(), 1u);
}

TEST(SystemDirectoryGroups, HoldTheirMembersOnce) {
  const std::string camera =
      "<Devices ID='65536'><Device Number='2'><Video><Input "
      "Number='1'/></Video></Device></Devices>";
  const SystemDirectory directory = Directory(
      "<Events><SourceGroup ID='3'><Entry>" + camera +
      "</Entry><Entry/><Entry><Devices ID='65536'><Device Number='2'/></Devices></Entry>"
      "<Entry><Analytics ID='4026597376'><Device Number='2'/><Input "
      "Number='1'/></Analytics></Entry>"
      "<Entry>" +
      camera + "</Entry></SourceGroup><Event ID='1'><SourceGroup ID='4'><Entry>" + camera +
      "</Entry></SourceGroup></Event></Events><Events><SourceGroup ID='259'><Entry>"
      "<Devices ID='65536'><Device Number='9'><Context Number='1'><Video><Input "
      "Number='1'/></Video>"
      "</Context></Device></Devices></Entry></SourceGroup></Events>");
  const std::vector<EventReference> expected = {{{0x00010201}, event_type::kVideoLoss},
                                                {{0x00010201}, event_type::kAnalytic},
                                                {{0x10010901}, event_type::kVideoLoss}};
  EXPECT_EQ(directory.GroupMembers({0x000A0003}), expected);
  EXPECT_TRUE(directory.GroupMembers({0x000A0004}).empty()) << "named by an event, not described";
}

}  // namespace
}  // namespace tvx
