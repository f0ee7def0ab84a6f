// Real encoders' streams, played by a real decoder: every picture must come out as it does of the
// bare stream, at the time and with the starting points that were given.
#include <cstdio>
#include <sstream>

#include "quicktime/movie_fixture.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;

std::string RunShell(const std::string& command) {
  std::string text;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
  ::pclose(pipe);
  return text;
}

// A hash of every decoded picture, behind the last comma; times differ in a bare stream.
std::string Pictures(const std::string& path) {
  return RunShell("ffmpeg -v error -xerror -nostdin -i " + path +
                  " -fps_mode passthrough -f framemd5 - 2>&1 | sed '/^#/d;s/.*,//'");
}

// The last row's sets change under their numbers in mid clip: the sizes follow one another.
TEST_F(MovieTest, PlayersShowEveryPictureOfTheStream) {
  if (RunShell("command -v ffprobe").empty()) GTEST_SKIP() << "ffmpeg is not installed";
  for (const auto& row : tvx::test::Rows(R"(
      h264 | libx264 -profile:v baseline -g 12                                  | 320x240   | 50
      h264 | libx264 -preset fast -bf 0 -profile:v high -g 5                    | 1920x1080 | 10
      h264 | libx264 -bf 0 -pix_fmt yuv422p10le -profile:v high422 -g 10        | 176x144   | 20
      h264 | libx264 -bf 0 -pix_fmt yuv444p -profile:v high444 -g 10            | 176x144   | 20
      h264 | libx264 -preset fast -bf 0 -flags +ildct+ilme -g 10                | 720x576   | 20
      h264 | libx264 -bf 0 -g 10 -x264-params slices=4                          | 320x240   | 30 | short
      h264 | libx264 -bf 0 -g 10 -b:v 3M -maxrate 3M -bufsize 1M -x264-params aud=1:nal-hrd=cbr:filler=1 | 320x240 | 30
      m4v  | mpeg4 -q:v 4 -g 12                                                 | 320x240   | 50
      m4v  | mpeg4 -q:v 4 -g 1                                                  | 176x144   | 10
      h264 | libx264 -profile:v baseline -g 10                                  | 320x240 640x480 | 40)")) {
    SCOPED_TRACE(row[1]);
    const std::string count = row[2].find(' ') != std::string::npos ? "20" : row[3];
    RunShell("rm -f clip.bits; for size in " + row[2] +
             "; do ffmpeg -v error -nostdin -f lavfi -i testsrc2=rate=25:size=$size -frames:v " +
             count + " -pix_fmt yuv420p -preset ultrafast -c:v " + row[1] + " -f " + row[0] +
             " - >>clip.bits; done");
    const std::string bits = tvx::test::ReadFile("clip.bits");
    CodedFrames frames;
    std::string expected, flags;
    std::istringstream packets(
        RunShell("ffprobe -v error -show_entries packet=size,flags -of csv=p=0 clip.bits"));
    char comma = 0;
    for (std::size_t at = 0, size = 0; packets >> size >> comma >> flags; at += size) {
      frames.push_back({bits.substr(at, size), flags[0] == 'K'});
      expected += flags + "\n";
      std::string& bytes = frames.back().payload;
      for (std::size_t code = 0; (code = bytes.find("\0\0\0\1"s)) != std::string::npos;) {
        if (row[4].empty()) break;
        bytes.erase(code, 1);
      }
    }
    ASSERT_EQ(std::to_string(frames.size()), row[3]);
    Convert(row[0] == "h264" ? kH264Video : kMpeg4Video, frames, 3.717);
    EXPECT_EQ(RunShell("ffprobe -v error -show_entries packet=flags:stream=nb_frames:"
                       "format=duration -of csv=p=0 clip.mov"),
              expected + row[3] + "\n3.717000\n");
    EXPECT_EQ(Pictures("clip.mov"), Pictures("clip.bits"));
  }
}

}  // namespace
}  // namespace quicktime::test
