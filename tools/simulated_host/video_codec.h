// How a camera codes its pictures.
#pragma once

namespace tvx::tool {

enum class VideoCodec { H264, Mpeg4, Jpeg };

// As scenarios and the timeline name it.
inline const char* Name(VideoCodec codec) {
  switch (codec) {
    case VideoCodec::H264:
      return "h264";
    case VideoCodec::Mpeg4:
      return "mpeg4";
    case VideoCodec::Jpeg:
      break;
  }
  return "jpeg";
}

}  // namespace tvx::tool
