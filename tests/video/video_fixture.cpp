#include "video_fixture.h"

#include <algorithm>

#include "base/clock.h"
#include "config/xml_document.h"

namespace tvx::test {
namespace {

std::string Attribute(const char* name, std::int64_t value) {
  return std::string(" ") + name + "=\"" + std::to_string(value) + "\"";
}

}  // namespace

SystemDirectory MakeDirectory(const std::vector<StreamRow>& rows) {
  std::string text =
      "<tDVR Delta=\"0\"><Devices ID=\"65536\"><Device Number=\"1\"><Context>"
      "<Video><Input Number=\"1\"/></Video><Codec><Encoder>";
  for (const StreamRow& row : rows) {
    text += "<Channel" + Attribute("ID", row.id);
    if (row.number != -1) text += Attribute("Number", row.number);
    text += Attribute("Width", row.width) + Attribute("Height", row.height) +
            Attribute("Standard", row.standard) + "/>";
  }
  text += "</Encoder></Codec></Context></Device></Devices></tDVR>";
  const ParsedDocument parsed = ParseDocument(text.data(), text.size());
  return SystemDirectory(*parsed.Root());
}

SourceId SourceOf(std::int32_t number) {
  return MakeSourceId(0, 0x10000, 1, static_cast<std::uint32_t>(number));
}

std::string Show(const VideoBuffer& buffer) {
  std::string text;
  for (const FrameGroup& group : buffer.Groups()) {
    if (!text.empty()) text += '|';
    for (const VideoFrame& frame : group.frames) {
      if (!text.empty() && text.back() != '|') text += ' ';
      text += std::to_string(frame.arrivalTime);
    }
  }
  return text;
}

VideoTest::VideoTest() {
  SetTickClock([this] { return now; });
  Reset();
}

void VideoTest::Reset() {
  set.emplace(&FakeHost::Entry);
  SelectStreams(
      {{kH264Stream, 1, 640, 480, standard::kH264}, {kJpegStream, 2, 320, 240, standard::kJpeg}});
}

void VideoTest::SelectStreams(const std::vector<StreamRow>& rows) {
  std::set<SourceId> wanted;
  for (const StreamRow& row : rows) wanted.insert(SourceOf(row.number));
  SelectStreams(rows, wanted);
}

void VideoTest::SelectStreams(const std::vector<StreamRow>& rows,
                              const std::set<SourceId>& wanted) {
  set->SelectStreams(std::make_shared<const SystemDirectory>(MakeDirectory(rows)), wanted, bin);
}

VideoTest::~VideoTest() {
  SetTickClock(MonotonicTick);
}

void VideoTest::TearDown() {
  set.reset();
  EmptyBin();
  std::vector<const void*> released = host.ReleasedFrames();
  std::sort(released.begin(), released.end());
  std::sort(taken.begin(), taken.end());
  EXPECT_TRUE(released == taken) << released.size() << " frames came back of " << taken.size();
  EXPECT_THAT(host.MalformedRequests(), ::testing::IsEmpty());
}

const void* VideoTest::NextHandle() {
  return reinterpret_cast<const void*>(++handles_);
}

bool VideoTest::Deliver(const IncomingFrame& frame) {
  const std::size_t before = host.ReleasedFrames().size();
  const bool accepted = set->TakeFrame(frame, bin);
  if (accepted) taken.push_back(frame.handle);
  EXPECT_EQ(host.ReleasedFrames().size(), before) << "a frame went back under the lock";
  return accepted;
}

bool VideoTest::Push(std::int32_t streamId, std::uint32_t type, std::uint32_t length) {
  return Deliver({streamId, type, 0, NextHandle(), length});
}

bool VideoTest::PushAt(std::uint32_t tick, std::uint32_t type, std::uint32_t length) {
  now = tick;
  return Push(kH264Stream, type, length);
}

std::shared_ptr<CVideoEmailStream> VideoTest::Cut(std::int32_t preTrigger,
                                                  std::int32_t maxSeconds) {
  return set->TakeClip(kH264Stream, preTrigger, maxSeconds, ready);
}

const VideoBuffer& VideoTest::History(std::int32_t streamId) const {
  return set->FindChannel(streamId)->Buffer();
}

}  // namespace tvx::test
