// Which streams are worth keeping: those of the sources that events notify about, or in their place
// the smallest stream of still images of the same camera, since the pictures go into an e-mail.
//
// A plain value that never changes once it is made; a new one is made whenever the wanted sources
// or the system directory change (VideoBufferSet::SelectStreams). Threads: any, as it is immutable.
// Errors:  only memory exhaustion throws.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "config/source_id.h"
#include "config/system_directory.h"

namespace tvx {

class StreamSelection {
 public:
  // Nothing is wanted.
  StreamSelection() = default;

  StreamSelection(const std::set<SourceId>& wanted, const SystemDirectory& directory);

  // Whether frames of a stream are kept: its source is wanted and has no substitute, or the stream
  // is one. Asked for every frame of the host, so it costs the same for one source and for ten
  // thousand.
  bool Takes(const VideoStream& stream) const;

  // The stream of still images that is kept instead of a source's own; null when there is none.
  const VideoStream* SubstituteOf(SourceId source) const;

 private:
  std::unordered_map<std::uint32_t, std::optional<VideoStream>> wanted_;
  std::unordered_set<std::int32_t> substitutes_;  // the identifiers that their frames carry
};

}  // namespace tvx
