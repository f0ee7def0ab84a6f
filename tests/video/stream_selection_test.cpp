#include "video/stream_selection.h"

#include "video/video_source.h"
#include "video_fixture.h"

namespace tvx::test {
namespace {

// Streams of one camera agree in the low 28 bits of their identifiers. The first row of each is the
// wanted one; its input is 1.
TEST(StreamSelection, ChoosesTheSmallestStillImagesOfTheCamera) {
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
    SCOPED_TRACE(row[2]);
    const SystemDirectory directory = MakeDirectory(row[0]);
    const StreamSelection selection({SourceOf(1)}, directory);
    EXPECT_EQ(selection.SubstituteOf(SourceOf(1)) != nullptr, row[1] != "0");
    const ClipSource source = FindClipSource(SourceOf(1), directory, selection);
    EXPECT_TRUE(source.mapped);
    EXPECT_EQ(static_cast<std::uint32_t>(source.streamId),
              std::stoul(row[1] == "0" ? row[0] : row[1], nullptr, 16));
  }
}

using StreamGate = VideoTest;

TEST_F(StreamGate, KeepsASubstituteInsteadOfTheStreamItself) {
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
