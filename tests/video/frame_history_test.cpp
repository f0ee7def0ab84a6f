#include <malloc.h>

#include <random>

#include "base/input_limits.h"
#include "video/video_source.h"
#include "video_fixture.h"

namespace tvx::test {
namespace {

using FrameHistory = VideoTest;

TEST_F(FrameHistory, TakesWhatFitsAndDropsTheOldestGroups) {
  ExpectRows(R"(
    L1000 d0 d10 h | 00[] | no key frame yet
    L1000 K0:1001 d10 h | 00[] | longer than the limit, and what depends on it
    L1000 K0:1000 h | 1[0] | as long as the limit
    L1000 K0:500 K10:300 d20:200 h | 111[0/10 20] | groups up to the limit
    L1000 K0:500 K10:501 h | 11[10] | a byte more
    L1000 K0:900 K10:4294967295 h | 10[] | more than 32 bits
    L1000 K0:300 d1:300 K2:300 d3:101 d4:1 h | 11111[2 3 4] | a group leaves whole
    L1000 K0:300 K10:300 K20:300 K30:800 h | 1111[30] | as many groups as need be
    L1000 K0:400 d40:400 d80:400 d120:1 K160:400 d200:200 h | 110011[160 200] | a gap ends with the next key frame
    L1000 K0:400 d40:700 K80:1001 d120:1 h | 1000[] | one that is too long leaves nothing
    L1000 L10485760 K0:10485760 K1:1 K10:400 d20:100 K30:400 L0 K40:1 h | 111110[1/10 20/30] | a limit of 0 refuses, and drops none
    L1000 L10485760 K1:1 K10:400 d20:100 K30:400 L500 d40 h | 11111[30 40] | a limit applies from the next frame on
    K0:10485761 K0:10485760 | 01 | the limit before any is set
    K0 P1_640x480_5 K10 h | 11[0/10] | the same pictures
    K0 P-1_640x480_5 K10 h | 11[0/10] | of the same input
    K0 P1_641x480_5 K10 h | 11[10] | wider
    K0 P1_640x481_5 K10 h | 11[10] | higher
    K0 P1_640x480_4 K10 h | 11[10] | coded otherwise
    K0 P B C0,10 | 1-1none | no longer known
    K0 P2_640x480_5 B C0,10 | 1-1none | another input's now
    K0 C0,10 P2_640x480_5 B F c | 1-0[0!] | but a clip still shows its frame)");
  set->SetByteLimit(1000);
  EXPECT_EQ(Feed("K0:1001", kJpegStream), "0") << "new streams have the limit as well";
  Reset();
  // Groups are not counted, but for pictures.
  for (int tick = 1; tick <= 25; ++tick) {
    const std::string picture = "K" + std::to_string(tick) + ":10";
    EXPECT_EQ(Feed(picture) + Feed(picture, kJpegStream), "11");
  }
  EXPECT_EQ(History().OldestTime() - start, 1u);
  EXPECT_EQ(History(kJpegStream).OldestTime() - start, 6u);
  // But frames are, as tiny ones cost the host as many buffers.
  Reset();
  for (std::size_t i = 0; i < 2 * kMaxHistoryFrames; ++i) Feed(i % 20'000 == 0 ? "K0:1" : "d0:1");
  EXPECT_EQ(History().Frames(), 40'000u);
  Reset();
  Feed("K100:1");
  const auto clip = Cut(0, 60);
  for (std::size_t i = 0; i < kMaxHistoryFrames; ++i) Feed("d100:0");
  EXPECT_EQ(History().Frames(), kMaxHistoryFrames) << "the only group is kept up to the limit";
  EXPECT_EQ(clip->Contents().Frames(), kMaxHistoryFrames);
  EXPECT_TRUE(clip->Complete());
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
  EXPECT_TRUE(deliver(kH264Stream, 5, 5) && deliver(kH264Stream, 0, 0)) << "no payload, nothing";
  const VideoFrame& frame = History().Groups().front().frames.front();
  EXPECT_EQ(std::string(frame.Payload(), frame.Payload() + frame.PayloadLength()), "ame");
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
    const auto growing = Cut(0, 60), refusing = Cut(0, 1), ending = Cut(0, 2);
    const auto failing = std::make_shared<FailingReady>();
    const auto last = set->TakeClip(kH264Stream, 0, 2, failing);
    EXPECT_THROW(Feed(frame), std::bad_alloc);
    for (const auto& clip : {growing, refusing, ending, last}) {
      EXPECT_EQ(Show(clip->Contents()), "0");
    }
    EXPECT_EQ(Feed(frame), "1") << "the host tries again";
  }
}

// Whatever happens, totals agree with what is held, and every frame comes back once.
TEST_F(FrameHistory, BooksBalanceThroughAnySequence) {
  std::mt19937 random(20240611);
  const auto below = [&](unsigned n) { return static_cast<unsigned>(random()) % n; };
  const auto text = [&](unsigned n) { return std::to_string(below(n)); };
  const char* const documents[] = {"P1_640x480_4,3ea/2_320x240_0", "P1_640x480_5,3ea/2_320x240_5",
                                   "P1_640x480_5,3ea/2_320x240_0", "P"};
  std::string taken;
  for (int step = 0; step < 20000; ++step) {
    const std::int32_t stream = below(3) == 0 ? kJpegStream : kH264Stream;
    const std::string clip = std::to_string(below(static_cast<unsigned>(cuts.size() + 1)) + 1);
    const std::string size = std::to_string(1 + below(below(20) == 0 ? 9000 : 600));
    const std::string frame = (stream == kJpegStream || below(8) == 0 ? "K" : "d") +
                              std::to_string(now + below(300)) + ":" + size;
    const bool isCut = std::stoul(clip) <= cuts.size();
    const std::string cut =
        set->FindChannel(stream) != nullptr ? "C" + text(8) + "," + text(8) : "";
    const std::string finish = isCut ? "F" + clip : "",
                      hand = isCut ? "A" + clip + " E" + clip : "";
    const std::string wait = below(10) == 0 ? "W" + text(50'000) + ":0" : "";
    const std::string steps[] = {
        cut, "B", finish, hand, wait, documents[below(4)], "L" + text(15'000)};
    const unsigned choice = below(40);
    taken += Feed(choice < 8 ? steps[choice % 7] : frame, stream);
    for (const std::int32_t id : {kH264Stream, kJpegStream}) {
      if (set->FindChannel(id) != nullptr) Feed("h", id);
    }
    for (const auto& each : cuts) Show(each.first->Contents());
    ASSERT_FALSE(HasFailure()) << "at step " << step;
  }
  EXPECT_GT(std::count(taken.begin(), taken.end(), '1'), 5000);
}

using StreamChoice = VideoTest;

// Streams of one camera agree in the low 28 bits of their identifiers. The first row of each is the
// wanted one; its input is 1.
TEST_F(StreamChoice, TakesTheSmallestStillImagesOfTheCamera) {
  for (const auto& row : Rows(R"(
    10000101/1 640x480 5 | 0 | no other stream
    10000101/1 640x480 0, 101/2 32x24 0 | 0 | is a picture itself
    10000101/1 640x480 5, 101/2 32x24 4 | 0 | none of still images
    10000101/1 640x480 5, 102/2 32x24 0 | 0 | another camera's
    10000101/1 640x480 5, 101/2 640x480 0 | 101 | the plain identifier
    101/1 640x480 5, 20000101/2 640x480 0 | 20000101 | one of the list
    10000101/1 640x480 5, 101/2 640x480 0, 20000101/3 320x240 0 | 20000101 | strictly smaller
    101/1 640x480 5, 30000101/2 320x240 0, 20000101/3 240x320 0 | 30000101 | a tie keeps the earlier
    10000101/1 640x480 5, 30000101/2 320x240 0, 101/3 320x240 0 | 101 | a tie keeps the plain identifier, wherever it is listed
    101/1 640x480 5, 30000101/2 320x240 0, 20000101/3 320x240 0 | 30000101 | which only counts first when the top four bits are set
    101/1 640x480 5, 30000101/2 320x240 0, 20000101/-1 160x120 0 | 30000101 | a smaller one of no number does not replace
    101/1 640x480 5, 30000101/-1 32x24 0, 20000101/3 160x120 0 | 20000101 | one of no number is replaced by a larger
    101/1 640x480 5, 30000101/-1 320x240 0, 20000101/-1 32x24 0 | 30000101 | but the first one is taken as it is
    101/1 640x480 5, 30000101/2 32x24 0, 20000101/3 65536x32768 0 | 20000101 | sizes are multiplied in 32 bits)")) {
    const SystemDirectory directory = MakeDirectory(row[0]);
    const StreamSelection selection({SourceOf(1)}, directory);
    EXPECT_EQ(selection.SubstituteOf(SourceOf(1)) != nullptr, row[1] != "0") << row[2];
    const ClipSource source = FindClipSource(SourceOf(1), directory, selection);
    EXPECT_TRUE(source.mapped);
    EXPECT_EQ(static_cast<std::uint32_t>(source.streamId),
              std::stoul(row[1] == "0" ? row[0] : row[1], nullptr, 16))
        << row[2];
  }
}

TEST_F(StreamChoice, KeepsASubstituteInsteadOfTheStreamItself) {
  // Input 2 shows the small pictures of the camera of input 1; nobody asked for either 2 or 3.
  const auto taken = [&](const std::set<std::int32_t>& wanted) {
    SelectStreams("10000101/1 640x480 5, 101/2 320x240 0, 102/3 640x480 5, 103/4 640x480 5",
                  wanted);
    return Feed("K0", 0x10000101) + Feed("K0", 0x101) + Feed("K0", 0x102) + Feed("K0", 0x103);
  };
  EXPECT_EQ(taken({1, 4, 9}), "0101");
  EXPECT_EQ(taken({}), "0000");
  EXPECT_EQ(History(0x101).Frames(), 1u) << "what is known stays";
  EXPECT_EQ(taken({2}), "0100") << "wanted for itself";
  EXPECT_EQ(taken({1, 2}), "0100");
  // The pictures may come under the same source as the coded stream.
  SelectStreams("10000101/1 640x480 5, 101/1 320x240 0, 102/1 640x480 5");
  EXPECT_EQ(Feed("K1", 0x10000101) + Feed("K1", 0x101) + Feed("K1", 0x102), "010");
}

}  // namespace
}  // namespace tvx::test
