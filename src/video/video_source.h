// From the video input of an event to the stream whose frames its clip is cut from.
//
// Threads: any. The question is asked under the intake mutex, so what it has to say is deferred.
#pragma once

#include <cstdint>

#include "config/source_id.h"
#include "config/system_directory.h"
#include "log/deferred_log.h"
#include "video/stream_selection.h"

namespace tvx {

struct ClipSource {
  std::int32_t streamId = 0;
  bool mapped = true;  // false: no stream is known, and the input's own identifier stands in for it
};

// The stream of an input, or its substitute.
ClipSource FindClipSource(SourceId input, const SystemDirectory& directory,
                          const StreamSelection& selection);

// Tells the administrator that the host's document names no stream for an input.
void LogUnmappedInput(DeferredLog& log);

// Tells the administrator that no frame of a stream has ever arrived.
void LogNoFrames(DeferredLog& log, std::int32_t streamId);

}  // namespace tvx
