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
  struct Row {
    const char* why;
    std::uint32_t limit;
    const char* before;
    std::uint32_t trigger;
    std::int32_t preTrigger, maxSeconds;
    const char* cut;  // with a mark behind it once the clip is complete
    const char* after;
    const char* grown;
    const char* finished;
  };
  const std::uint32_t mega = 1u << 20;
  const Row rows[] = {
      {"evenly on both sides, up to the duration", mega, kSixSeconds, 5750, 10, 6, "5000 5500",
       "K6000 d6500 K7000 d7500 K8000", "3000 3500|4000 4500|5000 5500|6000 6500|7000 7500|8000",
       "2000 2500|3000 3500|4000 4500|5000 5500|6000 6500|7000 7500|8000"},
      {"not before as much has passed after it", mega, "K0 d40 K80 d120", 200, 10, 10, "80 120",
       "d359", "80 120 359", "0 40|80 120 359"},
      {"but then", mega, "K0 d40 K80 d120", 200, 10, 10, "80 120", "d360", "0 40|80 120 360",
       "0 40|80 120 360"},
      {"one group a frame", mega, "K0 K10 K20 K30", 30, 10, 10, "30", "d900", "20|30 900",
       "0|10|20|30 900"},
      {"the duration to the millisecond", mega, "K0 d500", 500, 0, 1, "0 500", "d999 d1000 d1001",
       "0 500 999 1000!", "0 500 999 1000"},
      {"nothing beyond it", mega, "K0 d500", 500, 0, 1, "0 500", "d1001 d1002", "0 500!", "0 500"},
      {"a newest group that is as long", mega, "K0 K1000 d2000", 2000, 10, 1, "1000 2000!", "d2001",
       "1000 2000!", "1000 2000"},
      {"that is nearly as long", mega, "K0 K1000 d1999", 2000, 10, 1, "1000 1999", "d2000",
       "1000 1999 2000!", "1000 1999 2000"},
      {"no pre-trigger", mega, kSixSeconds, 5600, 0, 10, "5000 5500", "", "5000 5500", "5000 5500"},
      {"but what ended at that very millisecond", mega, "K0 d500 K500", 500, 0, 10, "500", "",
       "500", "0 500|500"},
      {"a pre-trigger to the millisecond", mega, kSixSeconds, 6500, 2, 10, "5000 5500", "",
       "5000 5500", "4000 4500|5000 5500"},
      {"a millisecond too late", mega, kSixSeconds, 6501, 2, 10, "5000 5500", "", "5000 5500",
       "5000 5500"},
      {"a negative one", mega, kSixSeconds, 5600, -1, 10, "5000 5500", "", "5000 5500",
       "5000 5500"},
      {"the largest ones", mega, "K0 d500 K1000 d1500 K2000", 2000, 2147483647, 2147483647, "2000",
       "", "2000", "0 500|1000 1500|2000"},
      {"at its dispatch as many as its duration allows", mega, kSixSeconds, 5600, 10, 2,
       "5000 5500", "", "5000 5500", "4000 4500|5000 5500"},
      {"which counts from the first frame of a group", mega, "K0 d1900 K2000 d3000", 3000, 10, 3,
       "2000 3000", "", "2000 3000", "0 1900|2000 3000"},
      {"no duration: the newest two groups", mega, kSixSeconds, 5600, 10, 0, "4000 4500|5000 5500!",
       "K6000", "4000 4500|5000 5500!", "4000 4500|5000 5500"},
      {"or a negative one", mega, "K0", 0, 10, -1, "0!", "", "0!", "0"},
      {"bytes up to the limit", 1000, "K0:300 K10:300", 10, 0, 10, "10", "d20:300 d30:400 d40:1",
       "10 20 30!", "10 20 30"},
      {"nothing beyond it", 1000, "K0:300 K10:300", 10, 0, 10, "10", "d20:300 d30:401 d40:1",
       "10 20!", "10 20"},
      {"held-back groups up to it", 1000, "K0:50 K10:350 K20:300", 20, 9, 9, "20", "d40:300",
       "10|20 40", "0|10|20 40"},
      {"one byte more ends the growth backwards", 1000, "K0:50 K10:351 K20:299", 20, 9, 9, "20",
       "d40:351", "20 40", "20 40"},
      {"from an empty history", mega, "d0", 0, 1, 1, "", "K100 d600 d1101", "100 600!", "100 600"},
      {"without a duration one frame ends the wait", mega, "d0", 0, 1, 0, "", "K100 d600", "100!",
       "100"},
      {"even one that nothing can hold", mega, "d0", 0, 1, 0, "", "d40", "!", ""},
  };
  for (const Row& row : rows) {
    // Also across the wrap of the clock: before the event, and right at it.
    for (const std::uint32_t from : {0u, 0u - row.trigger / 2, 0u - row.trigger}) {
      SCOPED_TRACE(testing::Message() << row.why << ", from tick " << from);
      Reset();
      start = from;
      set->SetByteLimit(row.limit);
      Feed(row.before);
      now = start + row.trigger;
      ready->calls = 0;
      const auto clip = Cut(row.preTrigger, row.maxSeconds);
      const auto shown = [&] {
        EXPECT_EQ(ready->calls, clip->Complete() ? 1 : 0);
        EXPECT_EQ(OpenClips(), clip->Complete() ? 0u : 1u);
        return Show(clip->Contents()) + (clip->Complete() ? "!" : "");
      };
      EXPECT_EQ(shown(), row.cut);
      set->SetByteLimit(mega);  // of the history only: an open clip keeps the one it was cut with
      Feed(row.after);
      EXPECT_EQ(shown(), row.grown);
      clip->Finish(bin);
      clip->Finish(bin);
      EXPECT_EQ(ready->calls, 1);
      EXPECT_EQ(Show(clip->Contents()), row.finished);
      EXPECT_EQ(clip->TriggerTime(), now = start + row.trigger);
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
  set->SetByteLimit(1000);
  Feed("K0 d500");
  const auto first = Cut(0, 1);
  const auto second = Cut(0, 2);
  const auto third = Cut(0, 60);
  EXPECT_EQ(Feed("d1000:300"), "1");
  EXPECT_EQ(OpenClips(), 2u) << "the first is full";
  EXPECT_EQ(Feed("d1500:600"), "0") << "nobody has room";
  EXPECT_EQ(OpenClips(), 0u);
  EXPECT_EQ(ready->calls, 3);
  EXPECT_EQ(Feed("K2000:600"), "1");
  const auto fourth = Cut(0, 60);
  const auto fifth = Cut(0, 60);
  set->SetByteLimit(900);
  EXPECT_EQ(Feed("d2500:400"), "1") << "by the clips, though not by the history";
  EXPECT_EQ(Show(History()), "2000");
  EXPECT_EQ(Show(fourth->Contents()) + Show(fifth->Contents()), "2000 25002000 2500");
  EXPECT_TRUE(fourth->Complete() && fifth->Complete());
  Feed("K3000");
  const auto open = Cut(0, 60);
  const auto ended = Cut(0, 60);
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
  EXPECT_EQ(Show(clip->Contents()), "4000 4500|5000 5500");
  EXPECT_EQ(clip->Contents().Format().Width, 640);
  EXPECT_EQ(OpenClips(), 0u);
  EXPECT_EQ(Show(History()), "6000");
  EXPECT_EQ(History().Format().Width, 1280);
}

TEST_F(Clip, OutlivesItsNotificationAndItsServiceInAnyOrder) {
  Feed(kSixSeconds);
  const auto open = Cut(10, 60);
  Cut(10, 60);  // nobody but the channel holds this one
  ready.reset();
  Feed("K6000");
  set.reset();
  open->Finish(bin);
  EXPECT_EQ(open->Contents().Frames(), 13u);
}

}  // namespace
}  // namespace tvx::test
