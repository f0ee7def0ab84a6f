// A stream that the host feeds to the plug-in, and where its pictures come from.
//
// Threads: any; plain values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tvx::tool {

enum class VideoCodec { H264, Mpeg4, Jpeg };

// As scenarios and the timeline name it.
const char* Name(VideoCodec codec);

struct Camera {
  std::uint32_t stream = 0;  // what its frames carry: the source identifier of what they show
  VideoCodec codec = VideoCodec::H264;
  std::string file;        // absolute path of a video; empty for a test picture
  bool sameCodec = false;  // the file is coded as the camera codes, so that nothing is recoded
  int width = 0;           // pixels
  int height = 0;
  double frameRate = 0;  // frames a second
  int frames = 0;  // of the whole video, as the file tells; 0 when it has no end or no word of it
};

class CameraError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Reads "STREAM CODEC [FILE]": a source identifier in decimal, or one and a sub-channel as in
// 66049/1; one of h264, mpeg4, jpeg; a video file, relative to the folder. The file is probed with
// ffprobe. Throws CameraError.
Camera ReadCamera(const std::string& text, const std::string& folder);

// What the camera shows, for people.
std::string Describe(const Camera& camera);

// The program whose output is the camera's frames (see FindFrame): the file's own where it has the
// camera's codec, else recoded; of a test picture, without an end.
std::vector<std::string> VideoProgramOf(const Camera& camera);

// One coded picture with all its slices, and the headers in front of it, in that output.
struct CodedFrame {
  std::size_t begin;  // offset of its first byte
  std::size_t size;
  bool key;  // nothing before it is needed
};

// The frame that the output begins with, or nothing when more of it must come. ffmpeg writes a line
// with size and flags of each packet, and then the packet.
std::optional<CodedFrame> FindFrame(std::string_view output);

}  // namespace tvx::tool
