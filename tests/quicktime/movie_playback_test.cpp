// Movies of real encoders' streams, played by a real decoder: every picture must come out as it
// does of the bare stream, at the time and with the starting points that were given.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <iomanip>
#include <sstream>

#include "quicktime/movie_file.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;

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

const StreamCase kStreams[] = {
    {"Baseline", "h264", "-profile:v baseline -g 12", 320, 240, 50},
    {"CroppedFullHd", "h264", "-preset fast -bf 0 -profile:v high -g 5", 1920, 1080, 10},
    {"HighTenBits422", "h264", "-bf 0 -pix_fmt yuv422p10le -profile:v high422 -g 10", 176, 144, 20},
    {"FullChroma", "h264", "-bf 0 -pix_fmt yuv444p -profile:v high444 -g 10", 176, 144, 20},
    {"Interlaced", "h264", "-preset fast -bf 0 -flags +ildct+ilme -g 10", 720, 576, 20},
    {"ShortStartCodes", "h264", "-bf 0 -g 10 -x264-params slices=4", 320, 240, 30, true},
    {"DelimitersAndFiller", "h264",
     "-bf 0 -g 10 -b:v 3M -maxrate 3M -bufsize 1M -x264-params aud=1:nal-hrd=cbr:filler=1", 320,
     240, 30},
    {"Mpeg4", "m4v", "-c:v mpeg4 -q:v 4 -g 12", 320, 240, 50},
    {"Mpeg4KeyFramesOnly", "m4v", "-c:v mpeg4 -q:v 4 -g 1", 176, 144, 10},
};

// Runs a command of the shell; its standard output and error, and the status behind them when the
// command failed.
std::string RunShell(const std::string& command) {
  std::string output;
  FILE* pipe = ::popen(("(" + command + ") 2>&1").c_str(), "r");
  if (pipe == nullptr) return "popen failed";
  char block[4096];
  for (std::size_t n; (n = std::fread(block, 1, sizeof(block), pipe)) > 0;) output.append(block, n);
  const int status = ::pclose(pipe);
  return status != 0 ? output + "status " + std::to_string(status) : output;
}

std::vector<std::string> Lines(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  return lines;
}

// Encodes a moving test picture into the file, as a bare stream.
void Encode(const StreamCase& stream, const std::string& path) {
  const bool isH264 = stream.muxer == "h264"s;
  std::ostringstream command;
  command << "ffmpeg -v error -nostdin -y -f lavfi -i testsrc2=rate=25:size=" << stream.width << "x"
          << stream.height << " -frames:v " << stream.frames << " -pix_fmt yuv420p "
          << (isH264 ? "-c:v libx264 -preset ultrafast " : "") << stream.options << " -f "
          << stream.muxer << " " << path;
  ASSERT_EQ(RunShell(command.str()), "");
}

// A bare stream, one coded picture a frame, as a host delivers it.
CodedFrames Split(const std::string& path) {
  const std::string bits = tvx::test::ReadFile(path);
  CodedFrames frames;
  std::size_t at = 0;
  for (const std::string& packet :
       Lines(RunShell("ffprobe -v error -show_entries packet=size,flags -of csv=p=0 " + path))) {
    const std::size_t size = std::stoul(packet);
    frames.push_back({bits.substr(at, size), packet.find('K') != std::string::npos});
    at += size;
  }
  EXPECT_EQ(at, bits.size());
  return frames;
}

// A hash of every decoded picture of a file.
std::vector<std::string> DecodedPictures(const std::string& path) {
  std::vector<std::string> pictures = Lines(RunShell("ffmpeg -v error -xerror -nostdin -i " + path +
                                                     " -fps_mode passthrough -f framemd5 -"));
  // Times differ between a bare stream and a movie; what follows the last comma is the picture.
  for (std::string& line : pictures) line.erase(0, line.rfind(',') + 1);
  return pictures;
}

class PlaybackOfChange : public ::testing::Test {
 protected:
  void SetUp() override {
    if (RunShell("command -v ffmpeg ffprobe").find("status") != std::string::npos) {
      GTEST_SKIP() << "ffmpeg is not installed: nothing to play movies with";
    }
  }
  tvx::test::TemporaryFolder folder_;
};

class Playback : public PlaybackOfChange, public ::testing::WithParamInterface<StreamCase> {};

TEST_P(Playback, ShowsEveryPictureOfTheStream) {
  const StreamCase& stream = GetParam();
  const bool isH264 = stream.muxer == "h264"s;
  ASSERT_NO_FATAL_FAILURE(Encode(stream, "clip.bits"));
  CodedFrames frames = Split("clip.bits");
  ASSERT_EQ(frames.size(), static_cast<std::size_t>(stream.frames));
  for (CodedFrame& frame : frames) {
    std::size_t at = 0;
    while (stream.shortStartCodes && (at = frame.payload.find("\0\0\0\1"s)) != std::string::npos) {
      frame.payload.erase(at, 1);
    }
  }
  const double seconds = stream.frames * 0.0617;  // no round number of any clock
  WriteMovie("clip.mov", isH264 ? kH264Video : kMpeg4Video, static_cast<unsigned>(stream.width),
             static_cast<unsigned>(stream.height), seconds, frames);

  const MovieFile movie = ReadMovie("clip.mov");
  EXPECT_EQ(movie.format, isH264 ? "avc1" : "mp4v");
  EXPECT_THAT(movie.brokenRules, testing::IsEmpty());
  const auto pictures = DecodedPictures("clip.mov");
  EXPECT_EQ(pictures.size(), frames.size());
  EXPECT_EQ(pictures, DecodedPictures("clip.bits"));

  std::ostringstream expected;
  for (const CodedFrame& frame : frames) expected << (frame.isKey ? "K_\n" : "__\n");
  expected << stream.width << "," << stream.height << "," << stream.frames << "\n"
           << std::fixed << std::setprecision(3) << seconds << "000\n";
  EXPECT_EQ(RunShell("ffprobe -v error -show_entries packet=flags:stream=width,height,nb_frames:"
                     "format=duration -of csv=p=0 clip.mov"),
            expected.str());
}

INSTANTIATE_TEST_SUITE_P(Streams, Playback, ::testing::ValuesIn(kStreams),
                         [](const auto& test) { return std::string(test.param.name); });

// A camera that is set to another size in mid clip sends other sets under the same numbers.
TEST_F(PlaybackOfChange, GoesOnWhenParameterSetsChangeInMidClip) {
  const char* options = "-profile:v baseline -g 10";
  ASSERT_NO_FATAL_FAILURE(Encode({"", "h264", options, 320, 240, 20}, "small.bits"));
  ASSERT_NO_FATAL_FAILURE(Encode({"", "h264", options, 640, 480, 20}, "large.bits"));
  RunShell("cat small.bits large.bits small.bits >clip.bits");
  const CodedFrames frames = Split("clip.bits");
  WriteMovie("clip.mov", kH264Video, 320, 240, 2.4, frames);
  EXPECT_THAT(ReadMovie("clip.mov").brokenRules, testing::IsEmpty());
  // Bare, so that nothing is scaled to the first size: the bytes must decode to the same pictures.
  RunShell(
      "ffmpeg -v error -nostdin -i clip.mov -c copy -bsf:v h264_mp4toannexb -f h264 again.bits");
  EXPECT_EQ(frames.size(), 60U);
  EXPECT_EQ(DecodedPictures("again.bits").size(), frames.size());
  EXPECT_EQ(DecodedPictures("clip.mov"), DecodedPictures("clip.bits"));
}

}  // namespace
}  // namespace quicktime::test
