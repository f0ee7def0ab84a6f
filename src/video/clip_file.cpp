#include "video/clip_file.h"

#include <exception>
#include <system_error>

#include "log/host_log.h"
#include "quicktime/movie_writer.h"
#include "quicktime/output_file.h"
#include "video/movie_code.h"

namespace tvx {
namespace {

std::string Refusal(std::int32_t encoderStandard) {
  return "video format encoder.standard(" + std::to_string(encoderStandard) +
         (encoderStandard == standard::kH265 ? ":h265" : "") +
         ") is not supported for .mov attachments";
}

void WriteFrames(quicktime::ExportContainer& movie, quicktime::FourCharacterCode code,
                 const VideoBuffer& contents) {
  const StreamFormat& format = contents.Format();
  movie.AddVideoTrack(code, static_cast<std::uint32_t>(format.Width),
                      static_cast<std::uint32_t>(format.Height) & 0xFFFFu, contents.Span() / 1000.0,
                      contents.Frames(), quicktime::NoTextOverlayStyle);
  for (const FrameGroup& group : contents.Groups()) {
    // The first groups may be the headers themselves, in frames of their own.
    if (group.headers == nullptr || !group.headers->IsComplete()) continue;
    movie.UseHeaders(group.headers->Bytes());
    break;
  }
  for (const FrameGroup& group : contents.Groups()) {
    for (const VideoFrame& frame : group.frames) {
      movie.WriteSample(frame.Payload(), frame.PayloadLength(),
                        frame.IsKey() ? quicktime::kKeyFrameSample : quicktime::kOtherSample, 0);
    }
  }
  movie.Finish(0.0);
}

bool WriteMovie(AttachmentFile& file, const VideoBuffer& contents, HostServiceEntry host,
                quicktime::HeaderPlace headers = quicktime::HeaderPlace::Description) {
  const auto code = MovieCode(contents.Format().Standard);
  if (!code) {
    file.error = Refusal(contents.Format().Standard);
    return false;
  }
  quicktime::MovieWriter movie(headers);
  try {
    if (const int error = movie.Open(file.path); error != 0) {
      HostLog(kModuleId, host, LogLevel::Warning,
              "Failed to open file \"%s\"for writing in QuickTime format. Error %d",
              file.path.c_str(), error);
      movie.Finish(0.0);
      return false;
    }
    WriteFrames(movie, *code, contents);
  } catch (const std::exception&) {
    HostLog(kModuleId, host, LogLevel::Warning,
            "Failed to write video frames to QuickTime format file %s", file.path.c_str());
    return false;
  }
  return !movie.HasChangingHeaders() || headers == quicktime::HeaderPlace::SamplesToo ||
         WriteMovie(file, contents, host, quicktime::HeaderPlace::SamplesToo);
}

// Beside, and then renamed: a picture that fails leaves an earlier one of the same name alone.
bool WritePicture(const AttachmentFile& file, const VideoFrame& frame) {
  quicktime::OutputFile picture;
  if (picture.Open(file.path) != 0) return false;
  try {
    picture.Append({frame.Payload(), frame.PayloadLength()});
    picture.Commit();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace

bool WriteClipFile(AttachmentFile& file, const CVideoEmailStream& clip, HostServiceEntry host) {
  const VideoBuffer& contents = clip.Contents();
  if (clip.WasLetGo()) {
    file.error = "too much video was waiting to be sent, and this was the oldest";
    return false;
  }
  if (contents.Empty() || contents.Groups().front().frames.empty() || file.path.empty()) {
    return false;
  }
  const VideoFrame& first = contents.Groups().front().frames.front();
  if (first.data->Handle() == nullptr || first.data->Length() == 0) return false;
  return contents.Format().Standard == standard::kJpeg ? WritePicture(file, first)
                                                       : WriteMovie(file, contents, host);
}

}  // namespace tvx
