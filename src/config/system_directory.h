// What the host's full system document says about its devices: display names, video streams and
// source groups.
//
// A directory never changes once it is built; the service replaces it whole, so that a reader never
// sees half of one.
// Threads: any, as it is immutable.
// Errors:  malformed entries are skipped; of entries with one identifier the first counts. Only
//          memory exhaustion throws.
// Cost:    building is linear in the document, a look-up is one or two hash look-ups.
// Not here: which events notify (event_action_table.h), frames (video/).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "config/event_reference.h"
#include "config/source_id.h"
#include "config/stream_format.h"

class TiXmlElement;

namespace tvx {

enum class NameKind {
  Device,
  VideoInput,
  AudioInput,
  TriggerInput,
  TriggerOutput,
  PointOfSale,
  SourceGroup,
  SoftTrigger,
  TimeTrigger,
};

// The name of an entry that the directory has no name for: readable, with the number and index of
// its identifier.
std::string StandInName(NameKind kind, SourceId id);

// One video stream: the format of its frames and the source that it shows.
struct VideoStream {
  StreamFormat format;
  SourceId source;
};

class SystemDirectory {
 public:
  // The empty directory: every name is the stand-in, no stream is known.
  SystemDirectory() = default;

  // Reads the "tDVR" root of a full system document.
  explicit SystemDirectory(const TiXmlElement& root);

  // Display name of what the identifier denotes, or its stand-in. Which fields of the identifier
  // count depends on the kind; a point of sale is looked up with its index, then with index 0.
  std::string Name(NameKind kind, SourceId id) const;

  // The stream whose frames carry this identifier; null when there is none. The directory owns it.
  const VideoStream* FindStream(std::int32_t streamId) const;

  // The first stream, in document order, of a source; null when there is none. The directory owns
  // it.
  const VideoStream* StreamOfSource(SourceId source) const;

  // The streams of one camera: those whose identifiers agree in the low 28 bits, in document order.
  // Empty when there are none. The directory owns them.
  std::vector<const VideoStream*> StreamsOfCamera(std::int32_t streamId) const;

  // The sources of a group, each once, as events of them would name them. Empty for an unknown
  // group. Groups whose identifiers agree in the low 8 bits are one group, as events cannot tell
  // them apart.
  const std::vector<EventReference>& GroupMembers(SourceId group) const;

 private:
  class Reader;

  // A kind, and below it the fields of an identifier that count for the kind.
  using NameKey = std::uint64_t;
  static NameKey KeyOf(NameKind kind, SourceId id);
  const std::string* FindName(NameKind kind, SourceId id) const;

  std::unordered_map<NameKey, std::string> names_;  // none of them is empty
  std::vector<VideoStream> streams_;  // document order; the indexes below point into it
  std::unordered_map<std::int32_t, std::size_t> byStreamId_;
  std::unordered_map<std::uint32_t, std::size_t> bySource_;
  std::unordered_map<std::uint32_t, std::vector<std::size_t>> byCamera_;
  std::unordered_map<std::uint32_t, std::vector<EventReference>> groups_;
};

}  // namespace tvx
