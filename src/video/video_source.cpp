#include "video/video_source.h"

namespace tvx {

ClipSource FindClipSource(SourceId input, const SystemDirectory& directory,
                          const StreamSelection& selection) {
  const VideoStream* stream = directory.StreamOfSource(input);
  if (stream == nullptr) return {static_cast<std::int32_t>(input.value), false};
  const VideoStream* substitute = selection.SubstituteOf(input);
  return {substitute != nullptr ? substitute->format.ID : stream->format.ID, true};
}

void LogUnmappedInput(DeferredLog& log) {
  log.Add(LogLevel::Warning,
          "Unable to map video input to stream/ channel id to locate video frame");
}

void LogNoFrames(DeferredLog& log, std::int32_t streamId) {
  log.Add(LogLevel::Warning,
          "Unable to locate corresponding video frame for channel/stream id %d to attach to this "
          "notification profile",
          streamId);
}

}  // namespace tvx
