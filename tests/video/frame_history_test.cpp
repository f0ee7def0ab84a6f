#include <malloc.h>

#include <map>
#include <random>

#include "base/input_limits.h"
#include "video_fixture.h"

namespace tvx::test {
namespace {

using FrameHistory = VideoTest;

TEST_F(FrameHistory, TakesWhatFitsAndDropsTheOldestGroups) {
  for (const auto& row : Rows(R"(
    d0 d10 | 00 |  | 0 | no key frame yet
    K0:1001 d10 | 00 |  | 0 | longer than the limit, and what depends on it
    K0:1000 | 1 | 0 | 1000 | as long as the limit
    K0:500 K10:300 d20:200 | 111 | 0/10 20 | 1000 | groups up to the limit
    K0:500 K10:501 | 11 | 10 | 501 | a byte more
    K0:900 K10:4294967295 | 10 |  | 0 | more than 32 bits
    K0:300 d1:300 K2:300 d3:101 d4:1 | 11111 | 2 3 4 | 402 | a group leaves whole
    K0:300 K10:300 K20:300 K30:800 | 1111 | 30 | 800 | as many groups as need be
    K0:400 d40:400 d80:400 d120:1 K160:400 d200:200 | 110011 | 160 200 | 600 | a gap ends with the next key frame
    K0:400 d40:700 K80:1001 d120:1 | 1000 |  | 0 | one that is too long leaves nothing
    L10485760 K0:10485760 K1:1 K10:400 d20:100 K30:400 L0 K40:1 | 111110 | 1/10 20/30 | 901 | a limit of 0 refuses, and drops none
    L10485760 K1:1 K10:400 d20:100 K30:400 L500 d40 | 11111 | 30 40 | 500 | a limit applies from the next frame on)")) {
    SCOPED_TRACE(row[4]);
    Reset();
    set->SetByteLimit(1000);
    EXPECT_EQ(Feed(row[0]), row[1]);
    EXPECT_EQ(Show(History()), row[2]);
    EXPECT_EQ(std::to_string(History().Bytes()), row[3]);
  }
  EXPECT_EQ(Feed("K0:1001", kJpegStream), "0") << "new streams have the limit as well";
  Reset();
  EXPECT_EQ(Feed("K0:10485761 K0:10485760"), "01") << "the limit before any is set";
  Reset();
  // Groups are not counted, but for pictures.
  for (now = 1; now <= 25; ++now) {
    EXPECT_TRUE(Push(kH264Stream, true, 10) && Push(kJpegStream, true, 10));
  }
  EXPECT_EQ(History().OldestTime(), 1u);
  EXPECT_EQ(History(kJpegStream).OldestTime(), 6u);
  // But frames are, as tiny ones cost the host as many buffers.
  Reset();
  for (std::size_t i = 0; i < 2 * kMaxHistoryFrames; ++i) Push(kH264Stream, i % 20'000 == 0, 1);
  EXPECT_EQ(History().Frames(), 40'000u);
  Reset();
  Feed("K100:1");
  const auto clip = Cut(0, 60);
  for (std::size_t i = 0; i < kMaxHistoryFrames; ++i) Push(kH264Stream, false, 0);
  EXPECT_EQ(History().Frames(), kMaxHistoryFrames) << "the only group is kept up to the limit";
  EXPECT_EQ(clip->Contents().Frames(), kMaxHistoryFrames);
  EXPECT_TRUE(clip->Complete());
}

TEST_F(FrameHistory, RestartsOnlyWhenPicturesChange) {
  for (const auto& row : Rows(R"(
    3e9/1 640x480 5  | 0/10
    3e9/-1 640x480 5 | 0/10
    3e9/1 641x480 5  | 10
    3e9/1 640x481 5  | 10
    3e9/1 640x480 4  | 10)")) {
    Reset();
    Feed("K0");
    SelectStreams(row[0]);
    Feed("K10");
    EXPECT_EQ(Show(History()), row[1]) << row[0];
  }
}

TEST_F(FrameHistory, RefusesFramesWithoutUseAsIfTheyHadNotCome) {
  const auto deliver = [&](std::int32_t streamId, std::uint32_t offset, std::uint32_t length) {
    return Deliver({streamId, kKeyFrame, offset, host.Lend("frame"), length});
  };
  EXPECT_TRUE(deliver(kH264Stream, 2, 5));
  EXPECT_FALSE(Deliver({kH264Stream, kKeyFrame, 0, nullptr, 5}));
  EXPECT_FALSE(deliver(kH264Stream, 6, 5)) << "begins beyond its end";
  EXPECT_FALSE(deliver(4711, 0, 5));
  EXPECT_EQ(set->Channels(), 1u);
  EXPECT_TRUE(deliver(kH264Stream, 5, 5)) << "nothing behind what is the host's own";
  EXPECT_TRUE(deliver(kH264Stream, 0, 0)) << "nothing at all";
  const VideoFrame& frame = History().Groups().front().frames.front();
  EXPECT_EQ(std::string(frame.Payload(), frame.Payload() + frame.PayloadLength()), "ame");
}

TEST_F(FrameHistory, DropsChannelsThatNoLongerShowTheirSource) {
  Feed("K0");
  Feed("K0", kJpegStream);
  const auto clip = Cut(0, 10);
  // The stream of still images has gone; the other's identifier now belongs to another input.
  SelectStreams("3e9/2 640x480 5");
  EXPECT_EQ(set->Channels(), 0u);
  EXPECT_EQ(host.FramesReleased(), 0u) << "not under the lock";
  EmptyBin();
  EXPECT_EQ(host.FramesReleased(), 1u) << "the clip still shows its frame";
  clip->Finish(bin);
  EXPECT_EQ(ready->calls, 1);
  EXPECT_EQ(Cut(0, 10), nullptr);
}

TEST_F(FrameHistory, GivesItsBlocksOfFramesBack) {
  const auto before = mallinfo2().uordblks;
  for (int i = 0; i < 1000; ++i) FrameMaker().Make(&i, 1);
  EXPECT_LT(mallinfo2().uordblks, before + 100'000);
}

// Memory may run out in the midst of an intake, at the latest when a notification is told.
TEST_F(FrameHistory, AFrameWhoseIntakeFailedIsHeldNowhereAndStaysTheHosts) {
  struct FailingReady : INotifyReady {
    void Ready() override { throw std::bad_alloc(); }
  };
  for (const char* const frame : {"d2000", "K2000"}) {
    Reset();
    Feed("K0");
    const auto failing = std::make_shared<FailingReady>();
    const auto growing = Cut(0, 60);
    const auto refusing = Cut(0, 1);
    const auto ending = Cut(0, 2);
    const auto last = set->TakeClip(kH264Stream, 0, 2, failing);
    EXPECT_THROW(Feed(frame), std::bad_alloc);
    for (const auto& clip : {growing, refusing, ending, last}) {
      EXPECT_EQ(Show(clip->Contents()), "0");
      EXPECT_EQ(clip->Contents().Bytes() + clip->Contents().Frames(), 101u);
    }
    EXPECT_EQ(Feed(frame), "1") << "the host tries again";
  }
}

void ExpectAgreement(const VideoBuffer& buffer) {
  std::uint32_t bytes = 0, frames = 0, last = buffer.OldestTime();
  for (const FrameGroup& group : buffer.Groups()) {
    ASSERT_FALSE(group.frames.empty());
    EXPECT_TRUE(group.frames.front().IsKey());
    std::uint32_t groupBytes = 0;
    for (const VideoFrame& frame : group.frames) {
      groupBytes += frame.data->Length();
      EXPECT_LE(last, frame.arrivalTime);
      last = frame.arrivalTime;
    }
    EXPECT_EQ(group.bytes, groupBytes);
    bytes += groupBytes;
    frames += static_cast<std::uint32_t>(group.frames.size());
  }
  EXPECT_EQ(buffer.Bytes(), bytes);
  EXPECT_EQ(buffer.Frames(), frames);
}

// Whatever happens, totals agree with what is held, and every frame comes back once.
TEST_F(FrameHistory, BooksBalanceThroughAnySequence) {
  std::mt19937 random(20240611);
  const auto below = [&random](std::uint32_t n) {
    return std::uniform_int_distribution<std::uint32_t>(0, n - 1)(random);
  };
  const auto seconds = [&] { return static_cast<std::int32_t>(below(8)); };
  const char* const documents[] = {"3e9/1 640x480 4, 3ea/2 320x240 0",
                                   "3e9/1 640x480 5, 3ea/2 320x240 5", kUsualStreams, ""};
  std::vector<std::shared_ptr<CVideoEmailStream>> clips;
  std::uint32_t taken = 0;
  for (int step = 0; step < 20000; ++step) {
    now += below(300);
    const std::int32_t stream = below(3) == 0 ? kJpegStream : kH264Stream;
    const std::uint32_t action = below(40);
    if (action == 0) {
      set->SetByteLimit(below(5) * 3000);
    } else if (action == 1) {
      SelectStreams(documents[below(4)]);
    } else if (action <= 3) {
      if (auto clip = set->TakeClip(stream, seconds(), seconds(), ready)) clips.push_back(clip);
    } else if (action == 4 && !clips.empty()) {
      const auto chosen = clips.begin() + below(static_cast<std::uint32_t>(clips.size()));
      if (below(4) != 0) (*chosen)->Finish(bin);
      if (below(4) == 0) set->HandOver(**chosen);
      clips.erase(chosen);
    } else if (action == 5) {
      EmptyBin();
    } else if (action == 6 && below(10) == 0) {
      set->KeepWaitingWithin(below(10) * 5000, bin);
    } else {
      const bool isKey = stream == kJpegStream || below(8) == 0;
      taken += Push(stream, isKey, 1 + below(below(20) == 0 ? 9000 : 600));
    }
    for (const std::int32_t id : {kH264Stream, kJpegStream}) {
      if (set->FindChannel(id) != nullptr) ExpectAgreement(History(id));
    }
    for (const auto& clip : clips) ExpectAgreement(clip->Contents());
    ASSERT_FALSE(HasFailure()) << "at step " << step;
  }
  EXPECT_GT(taken, 5000u);
  // What waits: each frame once, each reference.
  SelectStreams("");
  std::map<const void*, std::uint32_t> frames;
  std::uint64_t references = 0, bytes = 0;
  for (const auto& clip : clips) {
    clip->Finish(bin);
    for (const FrameGroup& group : clip->Contents().Groups()) {
      for (const VideoFrame& frame : group.frames) frames[&*frame.data] = frame.data->Length();
      references += group.frames.size();
    }
  }
  for (const auto& frame : frames) bytes += frame.second;
  EmptyBin();
  EXPECT_GT(references, frames.size());
  EXPECT_EQ(set->WaitingBytes(), bytes + references * sizeof(VideoFrame));
  clips.clear();
  EXPECT_EQ(set->WaitingBytes(), 0u);
}

}  // namespace
}  // namespace tvx::test
