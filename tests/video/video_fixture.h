// A service's video half without the service: streams, frames with a driven clock, and the books of
// the host, which every test balances when it ends.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "config/system_directory.h"
#include "support/fake_host.h"
#include "video/video_buffer_set.h"

namespace tvx::test {

constexpr std::int32_t kH264Stream = 1001;
constexpr std::int32_t kJpegStream = 1002;
constexpr std::uint32_t kDependent = 0;

// One stream of the host's document: device part 0x10000, number 1, and the input "Number", or
// input 1 when the document gives none.
struct StreamRow {
  std::uint32_t id;
  std::int32_t number;  // -1: not given
  std::int32_t width;
  std::int32_t height;
  std::int32_t standard;
};
SystemDirectory MakeDirectory(const std::vector<StreamRow>& rows);

// The source that a row's stream shows.
SourceId SourceOf(std::int32_t number);

// Arrival times, groups parted by bars: "0 40|80 120".
std::string Show(const VideoBuffer& buffer);

class ReadyCounter : public INotifyReady {
 public:
  void Ready() override { ++calls; }
  int calls = 0;
};

class VideoTest : public ::testing::Test {
 protected:
  VideoTest();
  ~VideoTest() override;
  void TearDown() override;

  // Starts over with an empty set that knows the two usual streams.
  void Reset();

  // A new document of the host; the rows' own sources are wanted unless others are named.
  void SelectStreams(const std::vector<StreamRow>& rows);
  void SelectStreams(const std::vector<StreamRow>& rows, const std::set<SourceId>& wanted);

  // Delivers a frame at the current tick, each in a buffer of its own.
  bool Push(std::int32_t streamId, std::uint32_t type, std::uint32_t length = 100);
  bool PushAt(std::uint32_t tick, std::uint32_t type, std::uint32_t length = 100);  // H.264 stream
  bool Deliver(const IncomingFrame& frame);

  // A clip of the H.264 stream at the current tick.
  std::shared_ptr<CVideoEmailStream> Cut(std::int32_t preTrigger, std::int32_t maxSeconds);

  const VideoBuffer& History(std::int32_t streamId = kH264Stream) const;

  // Lets dropped frames go, as the service does once it has unlocked.
  void EmptyBin() { bin = FrameBin{}; }
  const void* NextHandle();

  FakeHost host;
  std::uint32_t now = 0;
  FrameBin bin;
  std::optional<VideoBufferSet> set;
  std::shared_ptr<ReadyCounter> ready = std::make_shared<ReadyCounter>();
  std::vector<const void*> taken;  // the host's books: every buffer that was answered with 1

 private:
  std::uintptr_t handles_ = 0;
};

}  // namespace tvx::test
