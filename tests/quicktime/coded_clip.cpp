#include "quicktime/coded_clip.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "quicktime/movie_writer.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using namespace std::string_literals;

// Each with the start code it begins with, a fourth zero in front included.
std::vector<std::string> Units(const std::string& stream) {
  static const std::string kStartCode = "\0\0\1"s;
  std::vector<std::string> units;
  const auto unitStart = [&stream](std::size_t code) {
    return code != 0 && code != std::string::npos && stream[code - 1] == 0 ? code - 1 : code;
  };
  std::size_t code = stream.find(kStartCode);
  while (code != std::string::npos) {
    const std::size_t next = stream.find(kStartCode, code + 3);
    const std::size_t begin = unitStart(code);
    units.push_back(stream.substr(begin, unitStart(next) - begin));
    code = next;
  }
  return units;
}

// The byte behind the start code, and the one behind that.
unsigned char ByteOf(const std::string& unit, std::size_t index) {
  const std::size_t at = unit.find('\1') + 1 + index;
  return at < unit.size() ? static_cast<unsigned char>(unit[at]) : 0;
}

}  // namespace

std::string RunShell(const std::string& command) {
  std::string output;
  FILE* pipe = ::popen(("(" + command + ") 2>&1").c_str(), "r");
  if (pipe == nullptr) return "popen failed";
  char block[4096];
  for (std::size_t n; (n = std::fread(block, 1, sizeof(block), pipe)) > 0;) output.append(block, n);
  const int status = ::pclose(pipe);
  if (status != 0) output += "status " + std::to_string(status);
  return output;
}

bool HasEncoder() {
  return RunShell("command -v ffmpeg && command -v ffprobe").find("status") == std::string::npos;
}

bool HasSecondOpinion() {
  return RunShell("command -v mediainfo").find("status") == std::string::npos;
}

void Encode(const std::string& options, const std::string& muxer, const std::string& size,
            int frames, const std::string& path) {
  RunShell("ffmpeg -v error -nostdin -y -f lavfi -i testsrc2=rate=25:size=" + size + " -frames:v " +
           std::to_string(frames) + " -pix_fmt yuv420p " + options + " -f " + muxer + " " + path);
}

CodedFrames SplitH264(const std::string& stream) {
  CodedFrames frames;
  bool pictureSeen = true;
  for (const std::string& unit : Units(stream)) {
    const int type = ByteOf(unit, 0) & 0x1F;
    const bool isSlice = type >= 1 && type <= 5;
    // A slice that starts at the first macroblock, or anything in front of one, is a new picture.
    const bool begins = isSlice ? (ByteOf(unit, 1) & 0x80) != 0 : type >= 6 && type <= 9;
    if (pictureSeen && begins) {
      frames.emplace_back();
      pictureSeen = false;
    }
    if (frames.empty()) frames.emplace_back();
    frames.back().payload += unit;
    frames.back().isKey |= type == 5;
    pictureSeen |= isSlice;
  }
  return frames;
}

CodedFrames SplitMpeg4(const std::string& stream) {
  constexpr int kPicture = 0xB6;
  CodedFrames frames;
  bool pictureSeen = true;
  for (const std::string& unit : Units(stream)) {
    if (pictureSeen) frames.emplace_back();
    frames.back().payload += unit;
    pictureSeen = ByteOf(unit, 0) == kPicture;
    if (pictureSeen) frames.back().isKey = ByteOf(unit, 1) >> 6 == 0;
  }
  return frames;
}

std::string WithShortStartCodes(const std::string& stream) {
  std::string shorter;
  for (const std::string& unit : Units(stream)) shorter += unit.substr(unit.find('\1') - 2);
  return shorter;
}

void WriteMovie(const std::string& path, FourCharacterCode code, unsigned width, unsigned height,
                double seconds, const CodedFrames& frames) {
  MovieWriter writer;
  const int error = writer.Open(path);
  if (error != 0) throw std::runtime_error("Open answered " + std::to_string(error));
  writer.AddVideoTrack(code, width, height, seconds, static_cast<std::uint32_t>(frames.size()),
                       NoTextOverlayStyle);
  for (const CodedFrame& frame : frames) {
    writer.WriteSample(frame.payload.data(), frame.payload.size(),
                       frame.isKey ? kKeyFrameSample : kOtherSample, 0);
  }
  writer.Finish(0.0);
}

std::vector<std::string> DecodedPictures(const std::string& path) {
  std::istringstream lines(RunShell("ffmpeg -v error -xerror -nostdin -i " + path +
                                    " -fps_mode passthrough -f framemd5 -"));
  std::vector<std::string> pictures;
  for (std::string line; std::getline(lines, line);) {
    // Times differ between a bare stream and a movie; what follows the last comma is the picture.
    if (line.empty() || line[0] == '#') continue;
    const std::size_t comma = line.rfind(',');
    pictures.push_back(comma == std::string::npos ? line : line.substr(comma + 1));
  }
  return pictures;
}

}  // namespace quicktime::test
