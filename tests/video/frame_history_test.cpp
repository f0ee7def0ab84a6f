#include <functional>
#include <thread>

#include "base/clock.h"
#include "video_fixture.h"

namespace tvx::test {
namespace {

using FrameHistory = VideoTest;

TEST_F(FrameHistory, RefusesWhatNoGroupCanHold) {
  EXPECT_FALSE(PushAt(0, kDependent)) << "no key frame yet";
  set->SetByteLimit(1000);
  EXPECT_FALSE(PushAt(10, kKeyFrame, 1001)) << "longer than the limit";
  EXPECT_FALSE(PushAt(20, kDependent)) << "its key frame is not there";
  EXPECT_TRUE(PushAt(30, kKeyFrame, 1000));
  set->SetByteLimit(0);
  EXPECT_FALSE(PushAt(40, kKeyFrame, 1));
  EXPECT_EQ(Show(History()), "30") << "a limit of 0 refuses frames, it does not drop what is held";
}

TEST_F(FrameHistory, AGroupThatOutgrowsTheLimitIsKeptUpToTheGap) {
  set->SetByteLimit(1000);
  PushAt(0, kKeyFrame, 400);
  PushAt(40, kDependent, 400);
  EXPECT_FALSE(PushAt(80, kDependent, 400));
  EXPECT_FALSE(PushAt(120, kDependent, 1)) << "would fit, but depends on the frame that is missing";
  EXPECT_EQ(Show(History()), "0 40");
  EXPECT_TRUE(PushAt(160, kKeyFrame, 400));
  EXPECT_TRUE(PushAt(200, kDependent, 200));
  EXPECT_EQ(Show(History()), "160 200");
  EXPECT_EQ(History().Bytes(), 600u);
}

TEST_F(FrameHistory, DropsWholeGroupsFromTheFrontAndReleasesThemWithTheBin) {
  set->SetByteLimit(1000);
  for (std::uint32_t tick = 0; tick < 1000; tick += 100) {
    PushAt(tick, tick % 200 == 0 ? kKeyFrame : kDependent, 200);
  }
  EXPECT_EQ(Show(History()), "600 700|800 900");
  EXPECT_EQ(History().Span(), 300u);
  EXPECT_TRUE(host.ReleasedFrames().empty());
  EmptyBin();
  EXPECT_EQ(host.ReleasedFrames(), std::vector<const void*>(taken.begin(), taken.begin() + 6));
  set->SetByteLimit(500);
  PushAt(1000, kDependent, 100);
  EXPECT_EQ(Show(History()), "800 900 1000") << "a smaller limit counts from the next frame on";
}

TEST_F(FrameHistory, HoldsTwentyPictures) {
  for (now = 1; now <= 25; ++now) EXPECT_TRUE(Push(kJpegStream, kKeyFrame));
  EXPECT_EQ(History(kJpegStream).Frames(), 20u);
  EXPECT_EQ(History(kJpegStream).OldestTime(), 6u);
}

TEST_F(FrameHistory, RestartsOnlyWhenPicturesChange) {
  struct Row {
    StreamRow format;
    const char* held;
  };
  const Row rows[] = {{{kH264Stream, 1, 640, 480, 5}, "0|10"},
                      {{kH264Stream, -1, 640, 480, 5}, "0|10"},
                      {{kH264Stream, 1, 641, 480, 5}, "10"},
                      {{kH264Stream, 1, 640, 481, 5}, "10"},
                      {{kH264Stream, 1, 640, 480, 4}, "10"}};
  for (const Row& row : rows) {
    Reset();
    PushAt(0, kKeyFrame);
    SelectStreams({row.format}, {SourceOf(1)});
    PushAt(10, kKeyFrame);
    EXPECT_EQ(Show(History()), row.held);
    EmptyBin();
  }
}

TEST_F(FrameHistory, RefusesFramesWithoutUseAsIfTheyHadNotCome) {
  PushAt(0, kKeyFrame);
  EXPECT_FALSE(Deliver({kH264Stream, kKeyFrame, 0, nullptr, 100}));
  EXPECT_FALSE(Deliver({kH264Stream, kKeyFrame, 0, NextHandle(), 0}));
  EXPECT_FALSE(Deliver({kH264Stream, kKeyFrame, 101, NextHandle(), 100}));
  EXPECT_FALSE(Deliver({4711, kKeyFrame, 0, NextHandle(), 100}));
  EXPECT_EQ(set->Channels(), 1u);
  EXPECT_TRUE(Deliver({kH264Stream, kDependent, 100, NextHandle(), 100}));
  EXPECT_EQ(History().Groups().back().frames.back().PayloadLength(), 0u);
}

TEST_F(FrameHistory, WithoutAClockAFrameStaysWithTheHost) {
  SetTickClock({});
  EXPECT_THROW(Push(kH264Stream, kKeyFrame), std::bad_function_call);
  SetTickClock([this] { return now; });
  EXPECT_TRUE(Push(kH264Stream, kKeyFrame));
}

TEST_F(FrameHistory, DropsChannelsThatNoLongerShowTheirSource) {
  Push(kH264Stream, kKeyFrame);
  Push(kJpegStream, kKeyFrame);
  const auto clip = Cut(0, 10);
  // The stream of still images has gone; the other's identifier now belongs to another input.
  SelectStreams({{kH264Stream, 3, 640, 480, standard::kH264}});
  EXPECT_EQ(set->Channels(), 0u);
  EXPECT_TRUE(host.ReleasedFrames().empty());
  EmptyBin();
  EXPECT_EQ(host.ReleasedFrames().size(), 1u) << "the clip still shows its frame";
  clip->Finish(bin);
  EXPECT_EQ(ready->calls, 1);
  EXPECT_EQ(Cut(0, 10), nullptr);
}

TEST_F(FrameHistory, TheLastReferenceMayGoOnAnotherThread) {
  for (std::uint32_t tick = 0; tick < 1000; ++tick)
    PushAt(tick, tick % 10 ? kDependent : kKeyFrame);
  std::vector<std::thread> workers;
  for (int i = 0; i < 4; ++i) {
    auto clip = Cut(1, 1);
    clip->Finish(bin);
    workers.emplace_back([clip = std::move(clip)]() mutable {
      EXPECT_GT(clip->Contents().Frames(), 0u);
      clip.reset();
    });
  }
  SelectStreams({});
  EmptyBin();
  for (std::thread& worker : workers) worker.join();
}

}  // namespace
}  // namespace tvx::test
