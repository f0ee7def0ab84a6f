#include "video_fixture.h"

namespace tvx::test {
namespace {

class Clip : public VideoTest {
 protected:
  // Groups of a second, two frames each, until the tick given is reached.
  void Record(std::uint32_t from, std::uint32_t to) {
    for (std::uint32_t tick = from; tick <= to; tick += 500) {
      PushAt(tick, tick % 1000 == 0 ? kKeyFrame : kDependent);
    }
  }
};

TEST_F(Clip, GrowsEvenlyOnBothSidesOfTheEvent) {
  Record(0, 5000);
  now = 5250;
  const auto clip = Cut(10, 6);
  EXPECT_EQ(Show(clip->Contents()), "5000");
  Record(5500, 5500);
  EXPECT_EQ(Show(clip->Contents()), "5000 5500") << "250 ms after is less than 750 ms before";
  Record(6000, 6000);
  EXPECT_EQ(Show(clip->Contents()), "4000 4500|5000 5500|6000");
  Record(6500, 7000);
  EXPECT_EQ(Show(clip->Contents()), "3000 3500|4000 4500|5000 5500|6000 6500|7000");
  Record(7500, 7500);
  EXPECT_EQ(ready->calls, 0);
  Record(8000, 8000);
  EXPECT_TRUE(clip->Complete());
  EXPECT_EQ(ready->calls, 1);
  Record(8500, 9000);
  EXPECT_EQ(Show(clip->Contents()),
            "2000 2500|3000 3500|4000 4500|5000 5500|6000 6500|7000 7500|8000")
      << "at its duration the clip takes no more";
  EXPECT_EQ(ready->calls, 1);
  EXPECT_EQ(clip->Contents().Bytes(), 1300u);
  EXPECT_EQ(clip->Contents().Frames(), 13u);
  EXPECT_EQ(clip->TriggerTime(), 5250u);
  EXPECT_EQ(set->FindChannel(kH264Stream)->OpenClips(), 0u);
}

TEST_F(Clip, GrowsTheSameAcrossTheWrapOfTheClock) {
  const std::uint32_t start = 0u - 5100u;  // the event comes 100 ms after the wrap
  for (std::uint32_t i = 0; i <= 10; ++i) PushAt(start + i * 500, i % 2 ? kDependent : kKeyFrame);
  now = start + 5200;
  const auto clip = Cut(4, 6);
  for (std::uint32_t i = 11; i <= 18; ++i) PushAt(start + i * 500, i % 2 ? kDependent : kKeyFrame);
  EXPECT_TRUE(clip->Complete());
  EXPECT_EQ(clip->Contents().OldestTime(), start + 2000);
  EXPECT_EQ(clip->Contents().NewestTime(), start + 8000);
  EXPECT_EQ(clip->Contents().Span(), 6000u);
}

// What a clip holds when it is cut, and when its notification is dispatched without further frames.
TEST_F(Clip, CutAndFinish) {
  Record(0, 5500);
  struct Row {
    std::uint32_t trigger;
    std::int32_t preTrigger;
    std::int32_t maxSeconds;
    bool complete;
    const char* cut;
    const char* finished;
  };
  const Row rows[] = {
      {5600, 0, 10, false, "5000 5500", "5000 5500"},
      {4500, 0, 10, false, "5000 5500", "4000 4500|5000 5500"},  // held at the same millisecond
      {6500, 2, 10, false, "5000 5500", "4000 4500|5000 5500"},
      {6501, 2, 10, false, "5000 5500", "5000 5500"},
      {5600, 10, 3, false, "5000 5500",
       "3000 3500|4000 4500|5000 5500"},  // duration allows no more
      {5600, 10, 2, false, "5000 5500", "4000 4500|5000 5500"},
      {5600, 10, 0, true, "4000 4500|5000 5500", "4000 4500|5000 5500"},
      {5600, 10, -1, true, "4000 4500|5000 5500", "4000 4500|5000 5500"},
      {5600, -1, 10, false, "5000 5500", "5000 5500"},
      {5600, 2147483647, 2147483647, false, "5000 5500",
       "0 500|1000 1500|2000 2500|3000 3500|4000 4500|5000 5500"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message()
                 << row.trigger << ' ' << row.preTrigger << ' ' << row.maxSeconds);
    now = row.trigger;
    ready->calls = 0;
    const auto clip = Cut(row.preTrigger, row.maxSeconds);
    EXPECT_EQ(clip->Complete(), row.complete);
    EXPECT_EQ(ready->calls, row.complete ? 1 : 0);
    EXPECT_EQ(Show(clip->Contents()), row.cut);
    clip->Finish(bin);
    clip->Finish(bin);
    EXPECT_EQ(Show(clip->Contents()), row.finished);
    EXPECT_EQ(ready->calls, 1);
  }
  set->SetByteLimit(0);
  const auto zeroLimit = Cut(10, 10);
  EXPECT_TRUE(zeroLimit->Complete()) << "a limit of 0 is like a duration of 0";
  EXPECT_EQ(Show(zeroLimit->Contents()), "4000 4500|5000 5500");
}

TEST_F(Clip, ANewestGroupAsLongAsTheDurationIsCompleteAtOnce) {
  PushAt(0, kKeyFrame);
  PushAt(1000, kKeyFrame);
  PushAt(2000, kDependent);
  const auto clip = Cut(10, 1);
  EXPECT_TRUE(clip->Complete());
  EXPECT_EQ(Show(clip->Contents()), "1000 2000");
  EXPECT_EQ(ready->calls, 1);
  EXPECT_EQ(Show(Cut(0, 0)->Contents()), "0|1000 2000");
  EXPECT_EQ(set->FindChannel(kH264Stream)->OpenClips(), 0u);
}

TEST_F(Clip, OfStillImagesHoldsTheNewestPicture) {
  for (now = 1; now <= 3; ++now) Push(kJpegStream, kKeyFrame);
  const auto clip = set->TakeClip(kJpegStream, 10, 10, ready);
  EXPECT_TRUE(clip->Complete());
  EXPECT_EQ(Show(clip->Contents()), "3");
  EXPECT_EQ(clip->Contents().Format().Width, 320);
}

// The channel exists, as a frame was offered to it, but its history is empty.
TEST_F(Clip, FromAnEmptyHistoryIsFilledByTheFramesThatFollow) {
  EXPECT_EQ(Cut(1, 1), nullptr);
  PushAt(0, kDependent);
  const auto movie = Cut(1, 1);
  const auto picture = Cut(1, 0);
  EXPECT_FALSE(movie->Complete() || picture->Complete());
  EXPECT_TRUE(PushAt(100, kKeyFrame));
  EXPECT_TRUE(picture->Complete());
  PushAt(600, kDependent);
  EXPECT_EQ(Show(picture->Contents()), "100");
  PushAt(1101, kDependent);
  EXPECT_TRUE(movie->Complete());
  EXPECT_EQ(Show(movie->Contents()), "100 600") << "the last frame lies beyond the duration";
  EXPECT_EQ(ready->calls, 2);

  Reset();
  PushAt(2000, kDependent);
  const auto nothing = Cut(1, 0);
  EXPECT_FALSE(PushAt(2040, kDependent));
  EXPECT_TRUE(nothing->Complete()) << "the first frame ends the wait, stored or not";
  EXPECT_TRUE(nothing->Contents().Empty());

  Push(kJpegStream, kDependent);
  const auto late = set->TakeClip(kJpegStream, 0, 10, ready);
  EXPECT_TRUE(Push(kJpegStream, kKeyFrame));
  EXPECT_EQ(late->Contents().Frames(), 1u);
  EXPECT_TRUE(late->Complete());
}

TEST_F(Clip, KeepsItsOwnByteLimit) {
  set->SetByteLimit(1000);
  Record(0, 1500);
  const auto first = Cut(10, 60);
  set->SetByteLimit(100000);
  Record(2000, 4000);  // one group before the event came in, so 9 frames of 100 bytes
  EXPECT_FALSE(first->Complete());
  EXPECT_TRUE(PushAt(4500, kDependent, 101)) << "the history takes it";
  EXPECT_TRUE(first->Complete());
  EXPECT_EQ(first->Contents().Bytes(), 900u);

  // Exactly full completes with the frame, and a frame that only a clip takes is taken too.
  set->SetByteLimit(1000);
  PushAt(5000, kKeyFrame, 600);
  const auto second = Cut(0, 60);
  set->SetByteLimit(900);
  EXPECT_TRUE(PushAt(5500, kDependent, 400));
  EXPECT_EQ(Show(History()), "5000");
  EXPECT_TRUE(second->Complete());
  EXPECT_EQ(second->Contents().Bytes(), 1000u);
}

TEST_F(Clip, AGroupThatDoesNotFitEndsTheGrowthBackwards) {
  for (const bool fits : {true, false}) {
    Reset();
    EmptyBin();
    const std::size_t before = host.ReleasedFrames().size();
    set->SetByteLimit(1000);
    PushAt(0, kKeyFrame, 50);
    PushAt(100, kKeyFrame, fits ? 400 : 401);
    PushAt(200, kKeyFrame, 300);
    const auto clip = Cut(10, 60);
    set->SetByteLimit(100000);
    PushAt(300, kDependent, 300);
    EXPECT_EQ(Show(clip->Contents()), fits ? "100|200 300" : "200 300");
    SelectStreams({});
    EXPECT_EQ(host.ReleasedFrames().size(), before);
    EmptyBin();
    EXPECT_EQ(host.ReleasedFrames().size() - before, fits ? 1u : 2u)
        << "what can no longer be used goes back at once";
    clip->Finish(bin);
    EXPECT_EQ(Show(clip->Contents()), fits ? "100|200 300" : "200 300");
  }
}

TEST_F(Clip, AFormatChangeCompletesItWithWhatItHas) {
  Record(0, 2500);
  const auto clip = Cut(1, 60);
  SelectStreams({{kH264Stream, 1, 1280, 720, standard::kH264}});
  EXPECT_TRUE(PushAt(3000, kKeyFrame));
  EXPECT_TRUE(clip->Complete());
  EXPECT_EQ(ready->calls, 1);
  EXPECT_EQ(Show(clip->Contents()), "1000 1500|2000 2500");
  EXPECT_EQ(clip->Contents().Format().Width, 640);
  EXPECT_EQ(Show(History()), "3000");
  EXPECT_EQ(set->FindChannel(kH264Stream)->OpenClips(), 0u);
}

TEST_F(Clip, OutlivesItsNotificationAndItsServiceInAnyOrder) {
  Record(0, 2500);
  const auto open = Cut(10, 60);
  Cut(10, 60);  // nobody but the channel holds this one
  ready.reset();
  Record(3000, 4000);
  set.reset();
  open->Finish(bin);
  EXPECT_EQ(Show(open->Contents()), "0 500|1000 1500|2000 2500|3000 3500|4000");
}

}  // namespace
}  // namespace tvx::test
