#include "video_fixture.h"

namespace tvx::test {
namespace {

using Clip = VideoTest;

// Five groups of a second, two frames of 100 bytes each.
const char* const kSixSeconds =
    "K0 d500 K1000 d1500 K2000 d2500 K3000 d3500 K4000 d4500 K5000 d5500";

// One event each: what the clip holds when it is cut, after the frames that follow, and when its
// notification is dispatched.
TEST_F(Clip, GrowsFromItsCutToItsDispatch) {
  // The byte limit, the trigger's tick, pre-trigger and longest duration in seconds; frames before;
  // what the clip holds when it is cut, with a mark once it is complete; frames after; what it holds
  // then, and when its notification is dispatched.
  for (const auto& row : Rows(R"(
    9000 5750 10 6 | SIX | 5000 5500 | K6000 d6500 K7000 d7500 K8000 | 3000 3500/4000 4500/5000 5500/6000 6500/7000 7500/8000 | 2000 2500/3000 3500/4000 4500/5000 5500/6000 6500/7000 7500/8000 | evenly on both sides, up to the duration
    9000 200 10 10 | K0 d40 K80 d120 | 80 120 | d359 | 80 120 359 | 0 40/80 120 359 | not before as much has passed after it
    9000 200 10 10 | K0 d40 K80 d120 | 80 120 | d360 | 0 40/80 120 360 | 0 40/80 120 360 | but then
    9000 30 10 10 | K0 K10 K20 K30 | 30 | d900 | 20/30 900 | 0/10/20/30 900 | one group a frame
    9000 500 0 1 | K0 d500 | 0 500 | d999 d1000 d1001 | 0 500 999 1000! | 0 500 999 1000 | the duration to the millisecond
    9000 500 0 1 | K0 d500 | 0 500 | d1001 d1002 | 0 500! | 0 500 | nothing beyond it
    9000 2000 10 1 | K0 K1000 d2000 | 1000 2000! | d2001 | 1000 2000! | 1000 2000 | a newest group that is as long
    9000 2000 10 1 | K0 K1000 d1999 | 1000 1999 | d2000 | 1000 1999 2000! | 1000 1999 2000 | that is nearly as long
    9000 5600 0 10 | SIX | 5000 5500 |  | 5000 5500 | 5000 5500 | no pre-trigger
    9000 500 0 10 | K0 d500 K500 | 500 |  | 500 | 0 500/500 | but what ended at that very millisecond
    9000 6500 2 10 | SIX | 5000 5500 |  | 5000 5500 | 4000 4500/5000 5500 | a pre-trigger to the millisecond
    9000 6501 2 10 | SIX | 5000 5500 |  | 5000 5500 | 5000 5500 | a millisecond too late
    9000 5600 -1 10 | SIX | 5000 5500 |  | 5000 5500 | 5000 5500 | a negative one
    9000 2000 2147483647 2147483647 | K0 d500 K1000 d1500 K2000 | 2000 |  | 2000 | 0 500/1000 1500/2000 | the largest ones
    9000 5600 10 2 | SIX | 5000 5500 |  | 5000 5500 | 4000 4500/5000 5500 | at its dispatch as many as its duration allows
    9000 3000 10 3 | K0 d1900 K2000 d3000 | 2000 3000 |  | 2000 3000 | 0 1900/2000 3000 | which counts from the first frame of a group
    9000 5600 10 0 | SIX | 4000 4500/5000 5500! | K6000 | 4000 4500/5000 5500! | 4000 4500/5000 5500 | no duration: the newest two groups
    9000 0 10 -1 | K0 | 0! |  | 0! | 0 | or a negative one
    1000 10 0 10 | K0:300 K10:300 | 10 | d20:300 d30:400 d40:1 | 10 20 30! | 10 20 30 | bytes up to the limit
    1000 10 0 10 | K0:300 K10:300 | 10 | d20:300 d30:401 d40:1 | 10 20! | 10 20 | nothing beyond it
    1000 20 9 9 | K0:50 K10:350 K20:300 | 20 | d40:300 | 10/20 40 | 0/10/20 40 | held-back groups up to it
    1000 20 9 9 | K0:50 K10:351 K20:299 | 20 | d40:351 | 20 40 | 20 40 | one byte more ends the growth backwards
    9000 0 1 1 | d0 |  | K100 d600 d1101 | 100 600! | 100 600 | from an empty history
    9000 0 1 0 | d0 |  | K100 d600 | 100! | 100 | without a duration one frame ends the wait
    9000 0 1 0 | d0 |  | d40 | ! |  | even one that nothing can hold)")) {
    std::uint32_t limit = 0, trigger = 0;
    std::int32_t preTrigger = 0, maxSeconds = 0;
    std::istringstream(row[0]) >> limit >> trigger >> preTrigger >> maxSeconds;
    // Also across the wrap of the clock: before the event, and right at it.
    for (const std::uint32_t from : {0u, 0u - trigger / 2, 0u - trigger}) {
      SCOPED_TRACE(testing::Message() << row[6] << ", from tick " << from);
      Reset();
      start = from;
      set->SetByteLimit(limit);
      Feed(row[1] == "SIX" ? kSixSeconds : row[1]);
      now = start + trigger;
      ready->calls = 0;
      const auto clip = Cut(preTrigger, maxSeconds);
      const auto shown = [&] {
        EXPECT_EQ(ready->calls, clip->Complete() ? 1 : 0);
        EXPECT_EQ(OpenClips(), clip->Complete() ? 0u : 1u);
        return Show(clip->Contents()) + (clip->Complete() ? "!" : "");
      };
      EXPECT_EQ(shown(), row[2]);
      set->SetByteLimit(9000);  // of the history only: an open clip keeps the one it was cut with
      Feed(row[3]);
      EXPECT_EQ(shown(), row[4]);
      clip->Finish(bin);
      clip->Finish(bin);
      EXPECT_EQ(ready->calls, 1);
      EXPECT_EQ(Show(clip->Contents()), row[5]);
      EXPECT_EQ(clip->TriggerTime(), now = start + trigger);
    }
  }
}

TEST_F(Clip, OfStillImagesHoldsOnePicture) {
  Feed("K1 K2 K3", kJpegStream);
  const auto clip = set->TakeClip(kJpegStream, 10, 10, ready);
  EXPECT_TRUE(clip->Complete());
  EXPECT_EQ(Show(clip->Contents()), "3");
  EXPECT_EQ(clip->Contents().Format().Width, 320);
  Reset();
  Feed("d0", kJpegStream);
  const auto late = set->TakeClip(kJpegStream, 0, 10, ready);
  Feed("K4 K5", kJpegStream);
  EXPECT_EQ(Show(late->Contents()), "4");
  Feed("K6");
  set->SetByteLimit(0);
  EXPECT_TRUE(Cut(10, 10)->Complete()) << "a limit of 0 is like a duration of 0";
}

TEST_F(Clip, SeveralTakeTheSameFramesEachToItsOwnEnd) {
  Feed("L1000 K0 d500");
  const auto first = Cut(0, 1), second = Cut(0, 2), third = Cut(0, 60);
  EXPECT_EQ(Feed("d1000:300"), "1");
  EXPECT_EQ(OpenClips(), 2u) << "the first is full";
  EXPECT_EQ(Feed("d1500:600"), "0") << "nobody has room";
  EXPECT_EQ(OpenClips(), 0u);
  EXPECT_EQ(ready->calls, 3);
  EXPECT_EQ(Feed("K2000:600"), "1");
  const auto fourth = Cut(0, 60), fifth = Cut(0, 60);
  EXPECT_EQ(Feed("L900 d2500:400"), "1") << "by the clips, though not by the history";
  EXPECT_EQ(Show(History()), "2000");
  EXPECT_EQ(Show(fourth->Contents()) + Show(fifth->Contents()), "2000 25002000 2500");
  EXPECT_TRUE(fourth->Complete() && fifth->Complete());
  Feed("K3000");
  const auto open = Cut(0, 60), ended = Cut(0, 60);
  ended->Finish(bin);
  set->DropCompleteClips(bin);
  EXPECT_EQ(OpenClips(), 1u);
}

TEST_F(Clip, TheOldestThatWaitIsLetGoFirst) {
  Feed("K0:1000 d500:1000");
  const auto oldest = Cut(0, 60);
  const auto read = Cut(0, 60);
  const auto open = Cut(0, 60);
  const std::uint64_t all = set->WaitingBytes();
  EXPECT_EQ(all, 2000 + 6 * sizeof(VideoFrame)) << "the frames count once";
  EXPECT_FALSE(set->KeepWaitingWithin(all, bin));
  set->HandOver(*read);  // the worker is at it
  EXPECT_TRUE(set->KeepWaitingWithin(all - 1, bin));
  EXPECT_TRUE(oldest->WasLetGo() && oldest->Complete() && oldest->Contents().Empty());
  EXPECT_FALSE(open->WasLetGo());
  EXPECT_EQ(ready->calls, 1);
  EXPECT_EQ(OpenClips(), 2u);
  EXPECT_TRUE(set->KeepWaitingWithin(0, bin));
  EXPECT_TRUE(open->WasLetGo());
  EXPECT_EQ(Show(read->Contents()), "0 500");
  EXPECT_FALSE(set->KeepWaitingWithin(0, bin));
  SelectStreams("");
  EmptyBin();
  EXPECT_EQ(host.FramesOut(), 2u) << "those of the clip that is read";
}

TEST_F(Clip, GivesBackAtOnceWhatItCanNoLongerUse) {
  for (const char* const end : {"refused", "complete"}) {
    Reset();
    set->SetByteLimit(1000);
    Feed("K0:50 K100:401 K200:300");
    const auto clip = Cut(10, *end == 'r' ? 60 : 1);
    Feed(*end == 'r' ? "d300:300" : "d1200:1");
    SelectStreams("");  // the history goes, too
    const std::uint32_t before = host.FramesReleased();
    EmptyBin();
    EXPECT_EQ(host.FramesReleased() - before, 2u) << end;
    clip->Finish(bin);
    EXPECT_EQ(Show(clip->Contents()), *end == 'r' ? "200 300" : "200 1200");
  }
}

TEST_F(Clip, AFormatChangeCompletesItWithWhatItHas) {
  Feed(kSixSeconds);
  const auto clip = Cut(1, 60);
  SelectStreams("3e9/1 1280x720 5");
  EXPECT_EQ(Feed("K6000"), "1");
  EXPECT_TRUE(clip->Complete());
  EXPECT_EQ(ready->calls, 1);
  EXPECT_EQ(Show(clip->Contents()), "4000 4500/5000 5500");
  EXPECT_EQ(clip->Contents().Format().Width, 640);
  EXPECT_EQ(OpenClips(), 0u);
  EXPECT_EQ(Show(History()), "6000");
  EXPECT_EQ(History().Format().Width, 1280);
}

}  // namespace
}  // namespace tvx::test
