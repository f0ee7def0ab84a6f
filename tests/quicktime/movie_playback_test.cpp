// Real encoders' streams, played by a real decoder: every picture must come out as it does of the
// bare stream, at the time and with the starting points that were given.
#include <boost/algorithm/string/replace.hpp>
#include <sstream>

#include "quicktime/movie_fixture.h"

namespace quicktime::test {
namespace {

// A hash of every decoded picture, behind when it is shown, in pictures; or its number, as times are
// missing or others in a bare stream.
std::string Pictures(const std::string& path, const std::string& when) {
  return RunShell("ffmpeg -v error -xerror -nostdin -i " + path +
                  " -fps_mode passthrough -f framemd5 - 2>&1 | sed '/^#/d' | awk -F, '{print " +
                  when + ", $NF}'");
}

// The last row's sets change under their numbers in mid clip: the sizes follow one another.
TEST_F(MovieTest, PlayersShowEveryPictureOfTheStream) {
  if (RunShell("command -v ffprobe").empty()) GTEST_SKIP() << "ffmpeg is not installed";
  for (const auto& row : tvx::test::Rows(R"(
      h264 | libx264 -profile:v baseline -g 12                                  | 320x240   | 50 | 1:1
      h264 | libx264 -preset fast -bf 0 -profile:v high -g 5                    | 1920x1080 | 10 | 1:1
      h264 | libx264 -bf 0 -pix_fmt yuv422p10le -profile:v high422 -g 10        | 176x144   | 20 | 1:1
      h264 | libx264 -bf 0 -pix_fmt yuv444p -profile:v high444 -g 10            | 176x144   | 20 | 1:1
      h264 | libx264 -preset fast -bf 2 -flags +ildct+ilme -g 10 -vf setsar=16/11 | 720x576 | 20 | 16:11
      h264 | libx264 -bf 0 -g 10 -x264-params slices=4                          | 320x240   | 30 | 1:1 | short
      h264 | libx264 -bf 0 -g 10 -b:v 3M -maxrate 3M -bufsize 1M -x264-params aud=1:nal-hrd=cbr:filler=1 | 320x240 | 30 | 1:1
      h264 | libx264 -preset fast -bf 2 -g 10 -x264-params open-gop=1:b-adapt=0:scenecut=0 | 320x240 | 30 | 1:1
      h264 | libx264 -preset fast -bf 16 -g 40 -x264-params b-adapt=0           | 320x240   | 60 | 1:1
      m4v  | mpeg4 -q:v 4 -g 12 -bf 2                                           | 320x240   | 50 | 1:1
      m4v  | mpeg4 -q:v 4 -g 1 -vf setsar=12/11                                 | 176x144   | 10 | 12:11
      h264 | libx264 -profile:v baseline -g 10                                  | 320x240 640x480 | 40 | 1:1)")) {
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
      if (row[5].empty()) continue;
      boost::replace_all(frames.back().payload, "\0\0\0\1"s, "\0\0\1"s);
    }
    ASSERT_EQ(std::to_string(frames.size()), row[3]);
    Convert(row[0] == "h264" ? kH264Video : kMpeg4Video, frames, 3.717, 0, 0);
    EXPECT_EQ(RunShell("ffprobe -v error -show_entries packet=flags:stream=sample_aspect_ratio,"
                       "nb_frames:format=duration -of csv=p=0 clip.mov | sed 's/,$//;/^$/d'"),
              expected + row[4] + "," + row[3] + "\n3.717000\n");
    EXPECT_EQ(Pictures("clip.mov", "$3 + 0"), Pictures("clip.bits", "NR - 1"));
  }
}

}  // namespace
}  // namespace quicktime::test
