#include "simulated_host/camera.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "simulated_host/format.h"
#include "simulated_host/program.h"

namespace tvx::tool {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr int kTestWidth = 640;
constexpr int kTestHeight = 360;
constexpr double kTestFrameRate = 25;
// The pictures that a camera offers for e-mails and overviews are small and few.
constexpr int kTestImageWidth = 320;
constexpr int kTestImageHeight = 180;
constexpr double kTestImageRate = 5;

constexpr unsigned kKeyFlag = 1;  // of a packet, as ffmpeg writes it

// A codec, as users and as ffmpeg name it.
struct CodecNames {
  const char* name;
  const char* codec;
  const char* format;  // of the bare frames
};
const CodecNames& NamesOf(VideoCodec codec) {
  static constexpr CodecNames kNames[] = {
      {"h264", "h264", "h264"}, {"mpeg4", "mpeg4", "m4v"}, {"jpeg", "mjpeg", "mjpeg"}};
  return kNames[static_cast<int>(codec)];
}

std::optional<std::uint32_t> Number(const std::string& text) {
  std::uint32_t number = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (text.empty() || result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return number;
}

std::uint32_t ReadStream(const std::string& text) {
  constexpr std::uint32_t kSubChannels = 16;
  const std::size_t slash = text.find('/');
  const auto stream = Number(text.substr(0, slash));
  const auto subChannel =
      slash == std::string::npos ? std::optional<std::uint32_t>(0) : Number(text.substr(slash + 1));
  if (!stream || !subChannel || *stream == 0 || *subChannel >= kSubChannels ||
      (*subChannel != 0 && *stream >> 28 != 0)) {
    throw CameraError("\"" + text + "\" is no stream: a source identifier, as 66049, or one with " +
                      "a sub-channel from 1 to 15, as 66049/1");
  }
  return *stream | *subChannel << 28;
}

VideoCodec ReadCodec(const std::string& text) {
  for (const VideoCodec codec : {VideoCodec::H264, VideoCodec::Mpeg4, VideoCodec::Jpeg}) {
    if (text == Name(codec)) return codec;
  }
  throw CameraError("a camera's codec is h264, mpeg4 or jpeg, not \"" + text + "\"");
}

// "30000/1001" as a number; 0 when it is none.
double Ratio(const std::string& text) {
  double above = 0;
  double below = 1;
  if (std::sscanf(text.c_str(), "%lf/%lf", &above, &below) < 1 || below <= 0) return 0;
  return above / below;
}

// Some containers hold the count, all others a duration at best. ffprobe tells both as text.
int FrameCount(const json& answer, double frameRate) {
  constexpr double kMost = 1e9;
  double count = std::atof(answer["streams"][0].value("nb_frames", "0").c_str());
  if (count <= 0 && answer.contains("format")) {
    count = std::atof(answer["format"].value("duration", "0").c_str()) * frameRate;
  }
  return count > 0 && count < kMost ? static_cast<int>(std::lround(count)) : 0;
}

void Probe(Camera& camera) {
  if (!fs::exists(camera.file)) throw CameraError(camera.file + ": no such file");
  constexpr const char* kEntries =
      "stream=codec_name,width,height,avg_frame_rate,r_frame_rate,nb_frames:format=duration";
  const std::vector<std::string> command = {
      "/usr/bin/env",  "ffprobe", "-v",  "quiet", "-select_streams", "v:0",
      "-show_entries", kEntries,  "-of", "json",  camera.file};
  const json answer = json::parse(OutputOf(command), nullptr, false);
  if (!answer.is_object() || !answer.contains("streams") || answer["streams"].empty()) {
    throw CameraError("ffprobe finds no video in " + camera.file);
  }
  const json& video = answer["streams"][0];
  camera.sameCodec = video.value("codec_name", "") == NamesOf(camera.codec).codec;
  camera.width = video.value("width", 0);
  camera.height = video.value("height", 0);
  camera.frameRate = Ratio(video.value("avg_frame_rate", ""));
  if (camera.frameRate <= 0) camera.frameRate = Ratio(video.value("r_frame_rate", ""));
  if (camera.frameRate <= 0 || camera.width <= 0 || camera.height <= 0) {
    throw CameraError("ffprobe cannot tell size and frame rate of " + camera.file);
  }
  camera.frames = FrameCount(answer, camera.frameRate);
}

void ShowTestPicture(Camera& camera) {
  const bool image = camera.codec == VideoCodec::Jpeg;
  camera.width = image ? kTestImageWidth : kTestWidth;
  camera.height = image ? kTestImageHeight : kTestHeight;
  camera.frameRate = image ? kTestImageRate : kTestFrameRate;
}

void Append(std::vector<std::string>& words, std::initializer_list<const char*> more) {
  words.insert(words.end(), more.begin(), more.end());
}

// A key frame a second, no picture that refers to a later one, and several slices: as cameras do.
void AppendEncoder(std::vector<std::string>& words, const Camera& camera) {
  const std::string second = std::to_string(std::max(1l, std::lround(camera.frameRate)));
  switch (camera.codec) {
    case VideoCodec::H264:
      Append(words,
             {"-c:v", "libx264", "-preset", "ultrafast", "-tune", "zerolatency", "-x264-params",
              "slices=4:sliced-threads=0", "-pix_fmt", "yuv420p", "-g", second.c_str()});
      break;
    case VideoCodec::Mpeg4:
      Append(words, {"-c:v", "mpeg4", "-q:v", "5", "-pix_fmt", "yuv420p", "-g", second.c_str()});
      break;
    case VideoCodec::Jpeg:
      Append(words, {"-c:v", "mjpeg", "-q:v", "5", "-pix_fmt", "yuvj420p"});
      break;
  }
}

}  // namespace

const char* Name(VideoCodec codec) {
  return NamesOf(codec).name;
}

Camera ReadCamera(const std::string& text, const std::string& folder) {
  std::istringstream words(text);
  std::string stream, codec, file;
  words >> stream >> codec;
  std::getline(words >> std::ws, file);
  Camera camera;
  camera.stream = ReadStream(stream);
  camera.codec = ReadCodec(codec);
  if (file.empty()) {
    ShowTestPicture(camera);
  } else {
    camera.file = fs::absolute(fs::path(folder) / file).string();
    Probe(camera);
  }
  return camera;
}

std::string Describe(const Camera& camera) {
  std::string source = "a test picture";
  if (!camera.file.empty()) source = camera.file + (camera.sameCodec ? "" : ", recoded");
  return Format("%s %dx%d at %.4g frames a second", Name(camera.codec), camera.width, camera.height,
                camera.frameRate) +
         ", from " + source;
}

std::vector<std::string> VideoProgramOf(const Camera& camera) {
  std::vector<std::string> words = {"/usr/bin/env", "ffmpeg", "-hide_banner",
                                    "-nostdin",     "-v",     "error"};
  if (camera.file.empty()) {
    const std::string picture =
        Format("testsrc2=size=%dx%d:rate=%g,hue=h=%u", camera.width, camera.height,
               camera.frameRate, camera.stream % 0x10000000 / 256 * 67 % 360);
    Append(words, {"-f", "lavfi", "-i", picture.c_str()});
  } else {
    Append(words, {"-i", camera.file.c_str()});
  }
  // One thread: a test picture is made as it is fed, and several cameras share the machine.
  Append(words, {"-map", "0:v:0", "-threads", "1"});
  if (camera.sameCodec) {
    Append(words, {"-c:v", "copy"});
    // Files keep the headers beside the pictures; the stream needs them in front of key frames.
    if (camera.codec == VideoCodec::H264) Append(words, {"-bsf:v", "h264_mp4toannexb"});
    if (camera.codec == VideoCodec::Mpeg4) Append(words, {"-bsf:v", "dump_extra"});
  } else {
    AppendEncoder(words, camera);
  }
  const std::string outputs = std::string("[f=framecrc:flush_packets=1]pipe:1|[f=") +
                              NamesOf(camera.codec).format + ":flush_packets=1]pipe:1";
  Append(words, {"-f", "tee", outputs.c_str()});
  return words;
}

std::optional<CodedFrame> FindFrame(std::string_view output) {
  for (std::size_t begin = 0;;) {
    const std::size_t end = output.find('\n', begin);
    if (end == output.npos) return std::nullopt;
    const std::string line(output.substr(begin, end - begin));
    begin = end + 1;
    if (line[0] == '#') continue;  // about the whole stream
    // The stream's number, two times, a duration, the size, a checksum, and flags unless they are
    // those of a key frame alone.
    std::size_t size = 0;
    unsigned flags = kKeyFlag;
    if (std::sscanf(line.c_str(), "%*d, %*d, %*d, %*d, %zu, %*x, F=%x", &size, &flags) < 1 ||
        output.size() - begin < size) {
      return std::nullopt;
    }
    return CodedFrame{begin, size, (flags & kKeyFlag) != 0};
  }
}

}  // namespace tvx::tool
