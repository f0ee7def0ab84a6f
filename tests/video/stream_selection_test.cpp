#include "video/stream_selection.h"

#include "video/video_source.h"
#include "video_fixture.h"

namespace tvx::test {
namespace {

// Streams of one camera agree in the low 28 bits of their identifiers. The first row of each is the
// wanted one; its input is 1.
TEST(StreamSelection, ChoosesTheSmallestStillImagesOfTheCamera) {
  struct Row {
    const char* why;
    std::vector<StreamRow> streams;
    std::uint32_t substitute;  // 0: none
  };
  const Row rows[] = {
      {"no other stream", {{0x10000101, 1, 640, 480, 5}}, 0},
      {"is a picture itself", {{0x10000101, 1, 640, 480, 0}, {0x101, 2, 32, 24, 0}}, 0},
      {"none of still images", {{0x10000101, 1, 640, 480, 5}, {0x101, 2, 32, 24, 4}}, 0},
      {"another camera's", {{0x10000101, 1, 640, 480, 5}, {0x102, 2, 32, 24, 0}}, 0},
      {"the plain identifier", {{0x10000101, 1, 640, 480, 5}, {0x101, 2, 640, 480, 0}}, 0x101},
      {"one of the list", {{0x101, 1, 640, 480, 5}, {0x20000101, 2, 640, 480, 0}}, 0x20000101},
      {"strictly smaller",
       {{0x10000101, 1, 640, 480, 5}, {0x101, 2, 640, 480, 0}, {0x20000101, 3, 320, 240, 0}},
       0x20000101},
      {"a tie keeps the earlier",
       {{0x101, 1, 640, 480, 5}, {0x30000101, 2, 320, 240, 0}, {0x20000101, 3, 240, 320, 0}},
       0x30000101},
      {"a tie keeps the plain identifier, wherever it is listed",
       {{0x10000101, 1, 640, 480, 5}, {0x30000101, 2, 320, 240, 0}, {0x101, 3, 320, 240, 0}},
       0x101},
      {"which only counts first when the top four bits are set",
       {{0x101, 1, 640, 480, 5}, {0x30000101, 2, 320, 240, 0}, {0x20000101, 3, 320, 240, 0}},
       0x30000101},
      {"a smaller one of no number does not replace",
       {{0x101, 1, 640, 480, 5}, {0x30000101, 2, 320, 240, 0}, {0x20000101, -1, 160, 120, 0}},
       0x30000101},
      {"one of no number is replaced by a larger",
       {{0x101, 1, 640, 480, 5}, {0x30000101, -1, 32, 24, 0}, {0x20000101, 3, 160, 120, 0}},
       0x20000101},
      {"but the first one is taken as it is",
       {{0x101, 1, 640, 480, 5}, {0x30000101, -1, 320, 240, 0}, {0x20000101, -1, 32, 24, 0}},
       0x30000101},
      {"sizes are multiplied in 32 bits",
       {{0x101, 1, 640, 480, 5}, {0x30000101, 2, 32, 24, 0}, {0x20000101, 3, 65536, 32768, 0}},
       0x20000101},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const SystemDirectory directory = MakeDirectory(row.streams);
    const StreamSelection selection({SourceOf(1)}, directory);
    const VideoStream* substitute = selection.SubstituteOf(SourceOf(1));
    const std::uint32_t id =
        substitute == nullptr ? 0 : static_cast<std::uint32_t>(substitute->format.ID);
    EXPECT_EQ(id, row.substitute);
    const std::uint32_t expected = row.substitute == 0 ? row.streams[0].id : row.substitute;
    EXPECT_EQ(
        static_cast<std::uint32_t>(FindClipSource(SourceOf(1), directory, selection).streamId),
        expected);
  }
}

using StreamGate = VideoTest;

TEST_F(StreamGate, KeepsASubstituteInsteadOfTheStreamItself) {
  // Input 2 shows the small pictures of the camera of input 1; nobody asked for either 2 or 3.
  const std::vector<StreamRow> rows = {{0x10000101, 1, 640, 480, 5},
                                       {0x101, 2, 320, 240, 0},
                                       {0x102, 3, 640, 480, 5},
                                       {0x103, 4, 640, 480, 5}};
  SelectStreams(rows, {SourceOf(1), SourceOf(4), SourceOf(9)});
  EXPECT_FALSE(Push(0x10000101, kKeyFrame));
  EXPECT_TRUE(Push(0x101, kKeyFrame));
  EXPECT_FALSE(Push(0x102, kKeyFrame));
  EXPECT_TRUE(Push(0x103, kKeyFrame));
  const ClipSource source = FindClipSource(SourceOf(1), set->Directory(), set->Selection());
  EXPECT_TRUE(source.mapped);
  EXPECT_EQ(set->TakeClip(source.streamId, 5, 5, ready)->Contents().Frames(), 1u);

  SelectStreams(rows, {});
  EXPECT_FALSE(Push(0x101, kKeyFrame)) << "nothing is wanted";
  EXPECT_EQ(History(0x101).Frames(), 1u) << "what is known stays";
  SelectStreams(rows, {SourceOf(2)});
  EXPECT_TRUE(Push(0x101, kKeyFrame)) << "wanted for itself";
}

TEST_F(StreamGate, TellsTheAdministratorWhatIsMissing) {
  const ClipSource source =
      FindClipSource(SourceId{0xF0000007}, set->Directory(), set->Selection());
  EXPECT_FALSE(source.mapped);
  EXPECT_EQ(static_cast<std::uint32_t>(source.streamId), 0xF0000007u);
  DeferredLog log;
  LogUnmappedInput(log);
  LogNoFrames(log, source.streamId);
  log.Write(&FakeHost::Entry);
  EXPECT_THAT(
      host.Log(),
      ::testing::ElementsAre(
          LogLine{50, "Unable to map video input to stream/ channel id to locate video frame"},
          LogLine{50,
                  "Unable to locate corresponding video frame for channel/stream id "
                  "-268435449 to attach to this notification profile"}));
}

}  // namespace
}  // namespace tvx::test
