// What the host's full system document says about its devices: display names, video streams and
// source groups.
//
// A directory never changes once it is built; the service replaces it whole, so that a reader never
// sees half of one.
// Threads: any, as it is immutable.
// Errors:  malformed entries are skipped; only memory exhaustion throws.
// Not here: which events notify (event_action_table.h), frames (video/).
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
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

  // The stream whose frames carry this identifier; null when there is none.
  const VideoStream* FindStream(std::int32_t streamId) const;

  // The first stream, in document order, of a source; null when there is none.
  const VideoStream* StreamOfSource(SourceId source) const;

  // The streams of one camera: those whose identifiers agree in the low 28 bits, in document order.
  // Null when there are none.
  std::vector<const VideoStream*> StreamsOfCamera(std::int32_t streamId) const;

  // The sources of a group, as events of them would name them. Empty for an unknown group.
  const std::vector<EventReference>& GroupMembers(SourceId group) const;

 private:
  using NameKey = std::tuple<NameKind, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;

  std::map<NameKey, std::string> names_;
  std::vector<VideoStream> streams_;  // document order; the indexes below point into it
  std::unordered_map<std::int32_t, std::size_t> byStreamId_;
  std::unordered_map<std::uint32_t, std::size_t> bySource_;
  std::unordered_map<std::uint32_t, std::vector<std::size_t>> byCamera_;
  std::map<std::uint32_t, std::vector<EventReference>> groups_;
};

}  // namespace tvx
