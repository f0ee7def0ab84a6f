// A service's video half without the service: streams, frames with a driven clock, and the books of
// the host, which every test balances when it ends.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
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
  std::string text =
      "<Device Number='1'><Context><Video><Input Number='1'/></Video><Codec><Encoder>";
  std::istringstream list(streams);
  for (std::string stream; std::getline(list, stream, ',');) {
    unsigned id = 0;
    int number = 0, width = 0, height = 0, standard = 0;
    std::sscanf(stream.c_str(), "%x/%d %dx%d %d", &id, &number, &width, &height, &standard);
    std::ostringstream channel;
    channel << "<Channel ID='" << id << "' Width='" << width << "' Height='" << height;
    if (number != -1) channel << "' Number='" << number;
    text += channel.str() + "' Standard='" + std::to_string(standard) + "'/>";
  }
  text = SystemDocument(Devices(text + "</Encoder></Codec></Context></Device>"));
  return SystemDirectory(*ParseDocument(text.data(), text.size()).Root());
}

struct ReadyCounter : INotifyReady {
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
    SelectStreams("");
    bin = FrameBin{};
    cuts.clear();
    EXPECT_EQ(set->WaitingBytes(), 0u);
    SetTickClock(MonotonicTick);
    EXPECT_EQ(host.FramesOut(), 0u);
    EXPECT_THAT(host.Problems(), ::testing::IsEmpty());
  }

  // Starts over with an empty set.
  void Reset(const std::string& streams = kUsualStreams) {
    bin = FrameBin{};
    cuts.clear();
    set.emplace(&FakeHost::Entry);
    SelectStreams(streams);
  }

  void SelectStreams(const std::string& streams, const std::set<std::int32_t>& numbers = {1, 2}) {
    std::set<SourceId> wanted;
    for (const std::int32_t number : numbers) wanted.insert(SourceOf(number));
    const std::uint32_t before = host.FramesReleased();
    set->SelectStreams(std::make_shared<SystemDirectory>(MakeDirectory(streams)), wanted, bin);
    EXPECT_EQ(host.FramesReleased(), before) << "a frame went back under the lock";
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

  // Takes steps, apart by blanks; their answers behind one another:
  //   K0 d40 K80:500     a frame, key or dependent, its tick, its bytes unless they are 100 (two of
  //                      the host's own, "picture" with the tick's last figure, zeros; more than
  //                      10,000 are only said to be there): 1 when it was taken, else 0
  //   L900 T40           the byte limit; the tick
  //   P1_641x480_5 P     the stream shows another input or format, or is no longer known
  //   C10,60 F2 A2 E2 D  cuts a clip; finishes the second one, or the last; hands it over; forgets
  //                      it; drops complete ones
  //   c2 h               what a clip shows, "!" once it is complete, "-" when it was let go; the
  //                      history
  //   W90:2              keeps what waits within so many bytes and references: 1 if any was let go
  //   o B                how many clips are open; empties the bin: how many frames went back
  std::string Feed(const std::string& steps, std::int32_t streamId = kH264Stream) {
    std::string answers;
    std::istringstream words(steps);
    for (std::string word; words >> word;) {
      const char kind = word[0];
      const auto number = static_cast<std::uint32_t>(std::strtoull(&word[1], nullptr, 10));
      const std::size_t chosen = word.size() > 1 ? number - 1 : cuts.size() - 1;
      if (kind == 'K' || kind == 'd') {
        unsigned length = 100;
        std::sscanf(&word[1], "%u:%u", &now, &length);
        now += start;
        std::string bytes = "..picture" + std::to_string(now % 10);
        bytes.resize(std::min(length, 10'000u));
        answers += Deliver({streamId, kind == 'K' ? kKeyFrame : kDependent, std::min(length, 2u),
                            host.Lend(bytes), length})
                       ? '1'
                       : '0';
      }
      if (kind == 'L') set->SetByteLimit(number);
      if (kind == 'T') now = start + number;
      if (kind == 'P') {
        std::replace(word.begin(), word.end(), '_', ' ');
        SelectStreams(word.size() > 1 ? "3e9/" + word.substr(1) : "");
      }
      if (kind == 'C') {
        std::int32_t before = 0, longest = 0;
        std::sscanf(&word[1], "%d,%d", &before, &longest);
        if (Cut(before, longest, streamId) == nullptr) answers += "none";
      }
      if (kind == 'c') answers += Show(*cuts.at(chosen).first, cuts[chosen].second->calls);
      if (kind == 'F') cuts.at(chosen).first->Finish(bin);
      if (kind == 'A') set->HandOver(*cuts.at(chosen).first);
      if (kind == 'E') cuts.erase(cuts.begin() + static_cast<std::ptrdiff_t>(chosen));
      if (kind == 'D') set->DropCompleteClips(bin);
      if (kind == 'W') {
        const std::uint64_t references = std::stoul(word.substr(word.find(':') + 1));
        answers +=
            set->KeepWaitingWithin(number + references * sizeof(VideoFrame), bin) ? '1' : '0';
      }
      if (kind == 'h') answers += "[" + Show(History(streamId)) + "]";
      if (kind == 'o') answers += "o" + std::to_string(set->FindChannel(streamId)->OpenClips());
      if (kind == 'B') {
        const std::uint32_t before = host.FramesReleased();
        bin = FrameBin{};
        answers += "-" + std::to_string(host.FramesReleased() - before);
      }
    }
    return answers;
  }

  // Rows of steps, their answers and why, each at three places of the clock: with no wrap, and with
  // one half-way to the first cut ("T") and right at it.
  void ExpectRows(const std::string& table) {
    for (const auto& row : Rows(table)) {
      const std::size_t cut = row[0].find('T');
      const std::size_t tick = cut == std::string::npos ? 40 : std::stoul(row[0].substr(cut + 1));
      for (const std::size_t before : {std::size_t{0}, tick / 2, tick}) {
        Reset();
        start = 0u - static_cast<std::uint32_t>(before);
        EXPECT_EQ(Feed(row[0]), row[1]) << row[2] << ", from tick " << start;
      }
    }
  }

  std::string Show(const CVideoEmailStream& clip, int readyCalls) const {
    EXPECT_EQ(readyCalls, clip.Complete() ? 1 : 0);
    return "[" + Show(clip.Contents()) + (clip.WasLetGo() ? "-]" : clip.Complete() ? "!]" : "]");
  }
  // Arrival times, groups parted by slashes: "0 40/80 120". The totals agree with them.
  std::string Show(const VideoBuffer& buffer) const {
    std::string text;
    std::uint32_t bytes = 0, frames = 0, last = buffer.OldestTime() - start;
    for (const FrameGroup& group : buffer.Groups()) {
      const std::uint32_t before = bytes;
      for (const VideoFrame& frame : group.frames) {
        const bool isFirst = &frame == &group.frames.front();
        if (!text.empty()) text += isFirst ? '/' : ' ';
        text += std::to_string(frame.arrivalTime - start);
        EXPECT_TRUE(!isFirst || frame.IsKey());
        EXPECT_LE(std::exchange(last, frame.arrivalTime - start), frame.arrivalTime - start);
        bytes += frame.data->Length();
        ++frames;
      }
      EXPECT_TRUE(!group.frames.empty() && group.bytes == bytes - before);
    }
    EXPECT_EQ(buffer.Bytes(), bytes);
    EXPECT_EQ(buffer.Frames(), frames);
    return text;
  }

  std::shared_ptr<CVideoEmailStream> Cut(std::int32_t preTrigger, std::int32_t maxSeconds,
                                         std::int32_t streamId = kH264Stream) {
    const auto ready = std::make_shared<ReadyCounter>();
    cuts.emplace_back(set->TakeClip(streamId, preTrigger, maxSeconds, ready), ready);
    return cuts.back().first;
  }

  const VideoBuffer& History(std::int32_t streamId = kH264Stream) const {
    return set->FindChannel(streamId)->Buffer();
  }

  FakeHost host;
  std::uint32_t start = 0;  // the tick that is written as 0
  std::uint32_t now = 0;
  FrameBin bin;
  std::optional<VideoBufferSet> set;
  std::vector<std::pair<std::shared_ptr<CVideoEmailStream>, std::shared_ptr<ReadyCounter>>> cuts;
};

}  // namespace tvx::test
