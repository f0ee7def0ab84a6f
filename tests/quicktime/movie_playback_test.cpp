// Movies of real encoders' streams, played by a real decoder: every picture must come out as it
// does of the bare stream, at the time and with the starting points that were given.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "quicktime/coded_clip.h"
#include "quicktime/movie_file.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using ::testing::IsEmpty;

struct StreamCase {
  const char* name;
  const char* muxer;  // "h264" or "m4v"
  const char* options;
  int width, height, frames;
  bool shortStartCodes = false;
};

void PrintTo(const StreamCase& stream, std::ostream* out) {
  *out << stream.name;
}

constexpr char kX264[] = "-c:v libx264 -preset ultrafast ";

const StreamCase kStreams[] = {
    {"Baseline", "h264", "-profile:v baseline -g 12", 320, 240, 50},
    {"Main", "h264", "-preset medium -bf 0 -profile:v main -g 25", 352, 288, 50},
    {"High", "h264", "-preset medium -bf 0 -profile:v high -g 25", 640, 360, 50},
    {"CroppedFullHd", "h264", "-preset fast -bf 0 -profile:v high -g 5", 1920, 1080, 10},
    {"HighTenBits422", "h264", "-bf 0 -pix_fmt yuv422p10le -profile:v high422 -g 10", 176, 144, 20},
    {"FullChroma", "h264", "-bf 0 -pix_fmt yuv444p -profile:v high444 -g 10", 176, 144, 20},
    {"Interlaced", "h264", "-preset fast -bf 0 -flags +ildct+ilme -g 10", 720, 576, 20},
    {"FourSlices", "h264", "-bf 0 -g 10 -x264-params slices=4", 640, 480, 30},
    {"ShortStartCodes", "h264", "-bf 0 -g 10 -x264-params slices=2", 320, 240, 30, true},
    {"DelimitersAndFiller", "h264",
     "-bf 0 -g 10 -b:v 3M -maxrate 3M -bufsize 1M -x264-params aud=1:nal-hrd=cbr:filler=1", 320,
     240, 30},
    {"KeyFramesOnly", "h264", "-bf 0 -g 1", 320, 240, 15},
    {"OnePicture", "h264", "-bf 0", 320, 240, 1},
    {"Mpeg4", "m4v", "-c:v mpeg4 -q:v 4 -g 12", 320, 240, 50},
    {"Mpeg4Large", "m4v", "-c:v mpeg4 -q:v 3 -g 25", 1280, 720, 15},
    {"Mpeg4KeyFramesOnly", "m4v", "-c:v mpeg4 -q:v 4 -g 1", 176, 144, 10},
};

class PlaybackOfChange : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!HasEncoder()) GTEST_SKIP() << "ffmpeg is not installed: nothing to play movies with";
  }
  tvx::test::TemporaryFolder folder_;
};

class Playback : public PlaybackOfChange, public ::testing::WithParamInterface<StreamCase> {};

TEST_P(Playback, ShowsEveryPictureOfTheStream) {
  const StreamCase& stream = GetParam();
  const bool isH264 = std::string(stream.muxer) == "h264";
  Encode((isH264 ? kX264 : "") + std::string(stream.options), stream.muxer,
         std::to_string(stream.width) + "x" + std::to_string(stream.height), stream.frames,
         "clip.bits");
  std::string bits = tvx::test::ReadFile("clip.bits");
  if (stream.shortStartCodes) bits = WithShortStartCodes(bits);
  const CodedFrames frames = isH264 ? SplitH264(bits) : SplitMpeg4(bits);
  ASSERT_EQ(frames.size(), static_cast<std::size_t>(stream.frames));

  const double seconds = stream.frames * 0.0617;  // no round number of any clock
  WriteMovie("clip.mov", isH264 ? kH264Video : kMpeg4Video, static_cast<unsigned>(stream.width),
             static_cast<unsigned>(stream.height), seconds, frames);

  const MovieFile movie = ReadMovie("clip.mov");
  EXPECT_THAT(movie.brokenRules, IsEmpty());
  EXPECT_THAT(BrokenFormatRules(movie), IsEmpty());
  EXPECT_EQ(movie.format, isH264 ? "avc1" : "mp4v");
  EXPECT_NEAR(movie.Seconds(), seconds, 0.00051);

  const auto pictures = DecodedPictures("clip.mov");
  EXPECT_EQ(pictures.size(), frames.size());
  EXPECT_EQ(pictures, DecodedPictures("clip.bits"));

  std::ostringstream flags;
  for (const CodedFrame& frame : frames) flags << (frame.isKey ? "K_" : "__") << "\n";
  EXPECT_EQ(RunShell("ffprobe -v error -select_streams v -show_entries packet=flags -of csv=p=0 "
                     "clip.mov"),
            flags.str());
  std::ostringstream format;
  format << "codec_tag_string=" << movie.format << "\nwidth=" << stream.width
         << "\nheight=" << stream.height << "\nnb_frames=" << stream.frames << "\n";
  EXPECT_EQ(
      RunShell("ffprobe -v error -show_entries stream=codec_tag_string,width,height,nb_frames "
               "-of default=nw=1 clip.mov"),
      format.str());
  const double probed = std::stod(
      "0" + RunShell("ffprobe -v error -show_entries format=duration -of csv=p=0 clip.mov"));
  EXPECT_NEAR(probed, seconds, 0.0011);

  // A demuxer of another house reads the same movie.
  if (!HasSecondOpinion()) GTEST_SKIP() << "mediainfo is not installed: no second opinion";
  std::ostringstream opinion;
  opinion << (isH264 ? "AVC " : "MPEG-4 Visual ") << stream.width << " " << stream.height << " "
          << stream.frames << "\n";
  EXPECT_EQ(RunShell("mediainfo '--Inform=Video;%Format% %Width% %Height% %FrameCount%' clip.mov"),
            opinion.str());
  const double milliseconds =
      std::stod("0" + RunShell("mediainfo '--Inform=Video;%Duration%' clip.mov"));
  EXPECT_NEAR(milliseconds, seconds * 1000, 1.1);
}

INSTANTIATE_TEST_SUITE_P(Streams, Playback, ::testing::ValuesIn(kStreams),
                         [](const auto& test) { return std::string(test.param.name); });

// A camera that is set to another size in mid clip sends other sets under the same numbers.
TEST_F(PlaybackOfChange, GoesOnWhenParameterSetsChangeInMidClip) {
  Encode(std::string(kX264) + "-profile:v baseline -g 10", "h264", "320x240", 20, "small.bits");
  Encode(std::string(kX264) + "-profile:v baseline -g 10", "h264", "640x480", 20, "large.bits");
  const std::string small = tvx::test::ReadFile("small.bits");
  const std::string large = tvx::test::ReadFile("large.bits");
  tvx::test::WriteFile("clip.bits", small + large + small);
  CodedFrames frames = SplitH264(small + large + small);
  WriteMovie("clip.mov", kH264Video, 320, 240, 2.4, frames);

  EXPECT_THAT(ReadMovie("clip.mov").brokenRules, IsEmpty());
  // Bare, so that nothing is scaled to the first size: the bytes must decode to the same pictures.
  RunShell(
      "ffmpeg -v error -nostdin -i clip.mov -c copy -bsf:v h264_mp4toannexb -f h264 again.bits");
  EXPECT_EQ(DecodedPictures("again.bits").size(), frames.size());
  EXPECT_EQ(DecodedPictures("clip.mov"), DecodedPictures("clip.bits"));
}

}  // namespace
}  // namespace quicktime::test
