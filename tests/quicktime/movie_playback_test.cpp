// Movies of real encoders' streams, played by a real decoder: every picture must come out as it
// does of the bare stream, at the time and with the starting points that were given.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "quicktime/movie_file.h"
#include "support/table.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;

// What a command of the shell prints, line by line, comments left out.
std::vector<std::string> RunShell(const std::string& command) {
  std::vector<std::string> lines;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  char block[4096];
  while (std::fgets(block, sizeof(block), pipe) != nullptr) {
    if (*block != '#') lines.push_back(std::string(block, std::strcspn(block, "\n")));
  }
  ::pclose(pipe);
  return lines;
}

// A hash of every decoded picture: what follows the last comma; times differ in a bare stream.
std::vector<std::string> Pictures(const std::string& path) {
  auto lines = RunShell("ffmpeg -v error -xerror -nostdin -i " + path +
                        " -fps_mode passthrough -f framemd5 -");
  for (std::string& line : lines) line.erase(0, line.rfind(',') + 1);
  return lines;
}

// A set that changes under its number in mid clip is the last row: the sizes are one after another.
TEST(Playback, ShowsEveryPictureOfTheStream) {
  if (RunShell("command -v ffprobe").empty()) GTEST_SKIP() << "ffmpeg is not installed";
  const tvx::test::TemporaryFolder folder;
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
    const bool isChanging = row[2].find(' ') != std::string::npos;
    RunShell("rm -f clip.bits; for size in " + row[2] +
             "; do ffmpeg -v error -nostdin -f lavfi -i testsrc2=rate=25:size=$size -frames:v " +
             (isChanging ? "20" : row[3]) + " -pix_fmt yuv420p -preset ultrafast -c:v " + row[1] +
             " -f " + row[0] + " - >>clip.bits; done");
    const std::string bits = tvx::test::ReadFile("clip.bits");
    CodedFrames frames;
    std::vector<std::string> expected;
    std::size_t at = 0;
    for (const std::string& packet :
         RunShell("ffprobe -v error -show_entries packet=size,flags -of csv=p=0 clip.bits")) {
      const std::size_t size = std::stoul(packet);
      expected.push_back(packet.substr(packet.find(',') + 1));
      frames.push_back({bits.substr(at, size), expected.back()[0] == 'K'});
      at += size;
      std::string& bytes = frames.back().payload;
      for (std::size_t code = 0; (code = bytes.find("\0\0\0\1"s)) != std::string::npos;) {
        if (row[4].empty()) break;
        bytes.erase(code, 1);
      }
    }
    ASSERT_EQ(at, bits.size());
    ASSERT_EQ(std::to_string(frames.size()), row[3]);
    WriteMovie("clip.mov", row[0] == "h264" ? kH264Video : kMpeg4Video, 320, 240, 3.717, frames);

    EXPECT_THAT(ReadMovie("clip.mov").brokenRules, testing::IsEmpty());
    expected.push_back(row[3]);
    expected.emplace_back("3.717000");
    EXPECT_EQ(RunShell("ffprobe -v error -show_entries packet=flags:stream=nb_frames:"
                       "format=duration -of csv=p=0 clip.mov"),
              expected);
    EXPECT_EQ(Pictures("clip.mov"), Pictures("clip.bits"));
    EXPECT_EQ(Pictures("clip.mov").size(), frames.size());
  }
}

}  // namespace
}  // namespace quicktime::test
