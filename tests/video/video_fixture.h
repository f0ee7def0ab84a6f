// A service's video half without the service: streams, frames with a driven clock, and the books of
// the host, which every test balances when it ends.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "config/system_directory.h"
#include "config/xml_document.h"
#include "support/documents.h"
#include "support/fake_host.h"
#include "support/table.h"
#include "video/video_buffer_set.h"

namespace tvx::test {

constexpr std::int32_t kH264Stream = 1001;
constexpr std::int32_t kJpegStream = 1002;
constexpr const char* kUsualStreams = "3e9/1 640x480 5, 3ea/2 320x240 0";
constexpr std::uint32_t kDependent = 0;

// The source that a stream of this number shows: device part 0x10000, device 1.
inline SourceId SourceOf(std::int32_t number) {
  return MakeSourceId(0, 0x10000, 1, static_cast<std::uint32_t>(number));
}

// The host's document of streams written as "ID/number widthxheight standard, ...", the identifier
// in hexadecimal. A number of -1 is not given, so that the stream shows input 1.
inline SystemDirectory MakeDirectory(const std::string& streams) {
  std::string channels;
  std::istringstream list(streams);
  for (std::string stream; std::getline(list, stream, ',');) {
    unsigned id = 0;
    int number = 0, width = 0, height = 0, standard = 0;
    std::sscanf(stream.c_str(), "%x/%d %dx%d %d", &id, &number, &width, &height, &standard);
    std::ostringstream channel;
    channel << "<Channel ID='" << id << "' Width='" << width << "' Height='" << height
            << "' Standard='" << standard;
    if (number != -1) channel << "' Number='" << number;
    channels += channel.str() + "'/>";
  }
  const std::string text = SystemDocument(
      Devices("<Device Number='1'><Context><Video><Input Number='1'/></Video><Codec><Encoder>" +
              channels + "</Encoder></Codec></Context></Device>"));
  const ParsedDocument parsed = ParseDocument(text.data(), text.size());
  return SystemDirectory(*parsed.Root());
}

class ReadyCounter : public INotifyReady {
 public:
  void Ready() override { ++calls; }
  int calls = 0;
};

class VideoTest : public ::testing::Test {
 protected:
  VideoTest() {
    SetTickClock([this] { return now; });
    Reset();
  }

  ~VideoTest() override {
    set.reset();
    EmptyBin();
    SetTickClock(MonotonicTick);
    EXPECT_EQ(host.FramesOut(), 0u);
    EXPECT_THAT(host.Problems(), ::testing::IsEmpty());
  }

  // Starts over with an empty set.
  void Reset(const std::string& streams = kUsualStreams) {
    EmptyBin();
    set.emplace(&FakeHost::Entry);
    SelectStreams(streams);
  }

  // Lets dropped frames go, as the service does once it has unlocked.
  void EmptyBin() { bin = FrameBin{}; }

  // A new document of the host; the inputs that are wanted.
  void SelectStreams(const std::string& streams, const std::set<std::int32_t>& numbers = {1, 2}) {
    std::set<SourceId> wanted;
    for (const std::int32_t number : numbers) wanted.insert(SourceOf(number));
    set->SelectStreams(std::make_shared<const SystemDirectory>(MakeDirectory(streams)), wanted,
                       bin);
  }

  // False when the frame was refused.
  bool Deliver(const IncomingFrame& frame) {
    const std::size_t before = host.FramesReleased();
    bool accepted = false;
    try {
      accepted = set->TakeFrame(frame, bin);
    } catch (...) {
      host.TakeBack(frame.handle);
      throw;
    }
    EXPECT_EQ(host.FramesReleased(), before) << "a frame went back under the lock";
    if (!accepted && frame.handle != nullptr) host.TakeBack(frame.handle);
    return accepted;
  }

  // Delivers a frame at the current tick, in a buffer of its own.
  bool Push(std::int32_t streamId, bool isKey, std::uint32_t length = 100) {
    return Deliver({streamId, isKey ? kKeyFrame : kDependent, 0, host.Lend(), length});
  }

  // Delivers frames written as "K0 d40 K80:500": key or dependent, tick from the start, bytes
  // unless they are 100; "L900" sets the limit. A digit for each one's answer.
  std::string Feed(const std::string& frames, std::int32_t streamId = kH264Stream) {
    std::string answers;
    std::istringstream words(frames);
    for (std::string word; words >> word;) {
      if (word[0] == 'L') {
        set->SetByteLimit(static_cast<std::uint32_t>(std::stoul(word.substr(1))));
        continue;
      }
      unsigned length = 100;
      std::sscanf(word.c_str() + 1, "%u:%u", &now, &length);
      now += start;
      answers += Push(streamId, word[0] == 'K', length) ? '1' : '0';
    }
    return answers;
  }

  // Arrival times, groups parted by slashes: "0 40/80 120".
  std::string Show(const VideoBuffer& buffer) const {
    std::string text;
    for (const FrameGroup& group : buffer.Groups()) {
      if (!text.empty()) text += '/';
      for (const VideoFrame& frame : group.frames) {
        if (!text.empty() && text.back() != '/') text += ' ';
        text += std::to_string(frame.arrivalTime - start);
      }
    }
    return text;
  }

  // A clip of the H.264 stream at the current tick.
  std::shared_ptr<CVideoEmailStream> Cut(std::int32_t preTrigger, std::int32_t maxSeconds) {
    return set->TakeClip(kH264Stream, preTrigger, maxSeconds, ready);
  }

  const VideoBuffer& History(std::int32_t streamId = kH264Stream) const {
    return set->FindChannel(streamId)->Buffer();
  }
  std::size_t OpenClips() const { return set->FindChannel(kH264Stream)->OpenClips(); }

  FakeHost host;
  std::uint32_t start = 0;  // the tick that is written as 0
  std::uint32_t now = 0;
  FrameBin bin;
  std::optional<VideoBufferSet> set;
  std::shared_ptr<ReadyCounter> ready = std::make_shared<ReadyCounter>();
};

}  // namespace tvx::test
