#include "config/system_directory.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/event_types.h"
#include "config/system_document.h"

namespace tvx {
namespace {

using test::SystemDocument;

SystemDirectory Directory(const std::string& content) {
  return SystemDirectory(SystemDocument(content).Root());
}

struct NameCase {
  const char* what;
  NameKind kind;
  std::uint32_t id;
  const char* name;
};

void ExpectNames(const SystemDirectory& directory, const std::vector<NameCase>& cases) {
  for (const NameCase& each : cases) {
    EXPECT_EQ(directory.Name(each.kind, {each.id}), each.name) << each.what;
  }
}

TEST(SystemDirectoryNames, AreThoseOfTheDocument) {
  const SystemDocument document = SystemDocument::Sample();
  ExpectNames(
      SystemDirectory(document.Root()),
      {
          {"device", NameKind::Device, 0x00010200, "North gate"},
          {"device: sub-channel and index do not count", NameKind::Device, 0x30010205,
           "North gate"},
          {"video input", NameKind::VideoInput, 0x00010201, "Gate camera"},
          {"video input: the sub-channel counts", NameKind::VideoInput, 0x10010201,
           "Video Input 2-1"},
          {"audio input", NameKind::AudioInput, 0x00010201, "Gate microphone"},
          {"audio input: the sub-channel counts", NameKind::AudioInput, 0x10010201,
           "Audio Input 2-1"},
          {"trigger input", NameKind::TriggerInput, 0x00010203, "Gate contact"},
          {"trigger input: the sub-channel does not count", NameKind::TriggerInput, 0x50010203,
           "Gate contact"},
          {"trigger output", NameKind::TriggerOutput, 0x00010201, "Siren"},
          {"an output is no input", NameKind::TriggerInput, 0x00010201, "Trigger Input 2-1"},
          {"point-of-sale profile", NameKind::PointOfSale, 0x00020400, "Till 4"},
          {"point-of-sale profile, index 0 after all", NameKind::PointOfSale, 0x00020409, "Till 4"},
          {"point of sale by its stream", NameKind::PointOfSale, 0x00030102, "Till 4"},
          {"point of sale by its raw stream", NameKind::PointOfSale, 0x00030107, "Till 4"},
          {"point of sale, unknown stream", NameKind::PointOfSale, 0x00030103, "Point of Sale 1-3"},
          {"soft trigger: the number does not count", NameKind::SoftTrigger, 0x00040901, "Panic"},
          {"time trigger", NameKind::TimeTrigger, 0x00050001, "Night"},
          {"source group", NameKind::SourceGroup, 0x000A0003, "Perimeter"},
          {"source group of another part", NameKind::SourceGroup, 0x000B0003, "Source Group 3"},
      });
}

TEST(SystemDirectoryNames, StandInsAreReadable) {
  ExpectNames(SystemDirectory(),
              {
                  {"device", NameKind::Device, 0xF001FF02, "Device 255"},
                  {"video", NameKind::VideoInput, 0xF001FF02, "Video Input 255-2"},
                  {"audio", NameKind::AudioInput, 0xF001FF02, "Audio Input 255-2"},
                  {"trigger", NameKind::TriggerInput, 0xF001FF02, "Trigger Input 255-2"},
                  {"point of sale", NameKind::PointOfSale, 0xF001FF02, "Point of Sale 255-2"},
                  {"group", NameKind::SourceGroup, 0xF001FF02, "Source Group 2"},
                  {"soft trigger", NameKind::SoftTrigger, 0xF001FF02, "Soft Trigger 2"},
                  {"time trigger", NameKind::TimeTrigger, 0xF001FF02, "Time Trigger 2"},
              });
}

TEST(SystemDirectoryNames, OddEntriesAreSkippedOrFallBack) {
  const SystemDirectory directory = Directory(R"(
    <Devices>
      <Device Number="1" Name=""/><Device Name="No number"/><Device Number="x" Name="Bad number"/>
      <Device Number="1" Name="Second of its number"/><Device Number="1" Name="Third"/>
      <Device Number="3">
        <Context><Video><Input Number="1" Name="No sub-channel"/></Video>
                 <Video><Input Number="2" Name="Second list"/></Video></Context>
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
  ExpectNames(
      directory,
      {
          {"the first that has a name", NameKind::Device, 0x00000100, "Second of its number"},
          {"neither of those without a number", NameKind::Device, 0, "Device 0"},
          {"sub-channel 0 by default", NameKind::VideoInput, 0x00000301, "No sub-channel"},
          {"several lists", NameKind::VideoInput, 0x00000302, "Second list"},
          {"largest sub-channel", NameKind::VideoInput, 0xF0000301, "Last sub-channel"},
          {"unreadable sub-channel", NameKind::VideoInput, 0x00000307, "Odd sub-channel"},
          {"low bits of a number", NameKind::TriggerInput, 0x00000302, "Excess bits"},
          {"unsigned identifier", NameKind::Device, 0x0FFF0500, "Unsigned"},
          {"signed identifier", NameKind::Device, 0x0FFF0600, "Signed"},
          {"profile that nobody described", NameKind::PointOfSale, 0x00030101, "Point of Sale 1-1"},
          {"input without a profile", NameKind::PointOfSale, 0x00030103, "Point of Sale 1-3"},
          {"profile described later", NameKind::PointOfSale, 0x00030104, "Later section"},
          {"group without an identifier", NameKind::SourceGroup, 0x000A0000, "Source Group 0"},
          {"low bits of a group", NameKind::SourceGroup, 0x000A0003, "Low bits"},
      });
}

// What a directory says of its streams, in one line each.
std::string Text(const VideoStream* stream) {
  if (stream == nullptr) return "none";
  const StreamFormat& format = stream->format;
  return std::to_string(static_cast<std::uint32_t>(format.ID)) + " #" +
         std::to_string(format.Number) + ' ' + std::to_string(format.Width) + 'x' +
         std::to_string(format.Height) + " standard " + std::to_string(format.Standard) + " of " +
         std::to_string(stream->source.value);
}

std::vector<std::string> Texts(const std::vector<const VideoStream*>& streams) {
  std::vector<std::string> texts;
  for (const VideoStream* stream : streams) texts.push_back(Text(stream));
  return texts;
}

TEST(SystemDirectoryStreams, AreFoundByIdentifierSourceAndCamera) {
  const SystemDocument document = SystemDocument::Sample();
  const SystemDirectory directory(document.Root());
  const std::string main = "66049 #1 1280x720 standard 5 of 66049";
  const std::string sub = "268501505 #1 320x180 standard 0 of 268501505";

  EXPECT_EQ(Text(directory.FindStream(0x00010201)), main);
  EXPECT_EQ(Text(directory.FindStream(0x10010201)), sub);
  EXPECT_EQ(Text(directory.FindStream(0x20010201)), "none");
  EXPECT_EQ(Text(directory.StreamOfSource({0x00010201})), main);
  EXPECT_EQ(Text(directory.StreamOfSource({0x10010201})), sub);
  EXPECT_EQ(Text(directory.StreamOfSource({0x00010202})), "none");
  const std::vector<std::string> both = {main, sub};
  EXPECT_EQ(Texts(directory.StreamsOfCamera(0x00010201)), both);
  EXPECT_EQ(Texts(directory.StreamsOfCamera(static_cast<std::int32_t>(0xF0010201))), both);
  EXPECT_TRUE(directory.StreamsOfCamera(0x00010202).empty());
}

TEST(SystemDirectoryStreams, HaveDefaultsForWhatIsMissing) {
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
    </Devices>)");
  EXPECT_EQ(Text(directory.StreamOfSource({0x20010106})),
            std::to_string(0x20010106) + " #-1 0x180 standard 0 of " + std::to_string(0x20010106));
  EXPECT_EQ(Text(directory.FindStream(0x00010200)), "66048 #-1 0x0 standard 0 of 66048");
  EXPECT_EQ(Text(directory.FindStream(static_cast<std::int32_t>(0xF0010001))),
            "4026597377 #300 0x0 standard 0 of 66092");
  EXPECT_EQ(Text(directory.FindStream(99)), "none") << "of a device without a number";
}

// A source must never be shown by the frames of another camera.
TEST(SystemDirectoryStreams, FirstOfAnIdentifierOrSourceCounts) {
  const SystemDirectory directory = Directory(R"(
    <Devices ID="65536"><Device Number="1"><Context><Codec><Encoder>
      <Channel ID="7" Number="1" Width="1"/><Channel ID="7" Number="2" Width="2"/>
      <Channel ID="8" Number="1" Width="3"/>
    </Encoder></Codec></Context></Device></Devices>)");
  EXPECT_EQ(directory.FindStream(7)->format.Width, 1);
  EXPECT_EQ(Text(directory.StreamOfSource({0x00010102})), "none");
  EXPECT_EQ(directory.StreamsOfCamera(7).size(), 1u);
  EXPECT_EQ(directory.StreamOfSource({0x00010101})->format.ID, 7);
  EXPECT_EQ(directory.FindStream(8)->format.Width, 3);
}

TEST(SystemDirectoryGroups, HoldTheirMembersOnce) {
  const SystemDirectory directory = Directory(R"(
    <Events>
      <SourceGroup ID="3">
        <Entry><Devices ID="65536"><Device Number="2"><Video><Input Number="1"/></Video></Device></Devices></Entry>
        <Entry/><Entry><Devices ID="65536"><Device Number="2"/></Devices></Entry>
        <Entry><Analytics ID="4026597376"><Device Number="2"/><Input Number="1"/></Analytics></Entry>
        <Entry><Devices ID="65536"><Device Number="2"><Video><Input Number="1"/></Video></Device></Devices></Entry>
      </SourceGroup>
      <Event ID="1"><SourceGroup ID="4"><Entry><Devices ID="65536"><Device Number="2"><Video><Input Number="1"/></Video></Device></Devices></Entry></SourceGroup></Event>
    </Events>
    <Events><SourceGroup ID="3">
      <Entry><Devices ID="65536"><Device Number="9"><Context Number="1"><Video><Input Number="1"/></Video></Context></Device></Devices></Entry>
    </SourceGroup></Events>)");
  const std::vector<EventReference> expected = {{{0x00010201}, event_type::kVideoLoss},
                                                {{0x00010201}, event_type::kAnalytic},
                                                {{0x10010901}, event_type::kVideoLoss}};
  EXPECT_EQ(directory.GroupMembers({0x000A0003}), expected);
  EXPECT_TRUE(directory.GroupMembers({0x000A0004}).empty()) << "named by an event, not described";
}

TEST(SystemDirectory, HoldsTenThousandCameras) {
  std::string content;
  for (int part = 1; part <= 50; ++part) {
    content += "<Devices ID=\"" + std::to_string(part << 16) + "\">";
    for (int device = 0; device < 200; ++device) {
      const std::string name = std::to_string(part) + '/' + std::to_string(device);
      content += "<Device Number=\"" + std::to_string(device) + "\" Name=\"Device " + name +
                 "\"><Context Number=\"0\"><Video><Input Number=\"1\" Name=\"Camera " + name +
                 "\"/></Video><Codec><Encoder><Channel Number=\"1\" Width=\"" +
                 std::to_string(part * 1000 + device) + "\"/></Encoder></Codec></Context></Device>";
    }
    content += "</Devices>";
  }
  const SystemDirectory directory = Directory(content);
  for (const std::uint32_t part : {1u, 50u}) {
    for (const std::uint32_t device : {0u, 199u}) {
      const SourceId id = MakeSourceId(0, part << 16, device, 1);
      const std::string name = std::to_string(part) + '/' + std::to_string(device);
      EXPECT_EQ(directory.Name(NameKind::VideoInput, id), "Camera " + name);
      const VideoStream* stream = directory.FindStream(static_cast<std::int32_t>(id.value));
      ASSERT_NE(stream, nullptr);
      EXPECT_EQ(stream->format.Width, static_cast<std::int32_t>(part * 1000 + device));
    }
  }
}

}  // namespace
}  // namespace tvx
