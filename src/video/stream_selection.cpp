#include "video/stream_selection.h"

namespace tvx {
namespace {

// The top four bits of an identifier tell the streams of one camera apart.
constexpr std::uint32_t kCameraMask = 0x0FFFFFFF;

bool IsStillImages(const VideoStream& stream) {
  return stream.format.Standard == standard::kJpeg;
}

// Taken modulo 2^32 and signed, so that absurd sizes of a document have a defined order.
std::int32_t Area(const StreamFormat& format) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(format.Width) *
                                   static_cast<std::uint32_t>(format.Height));
}

bool IsBetter(const StreamFormat& later, const StreamFormat& current) {
  if (later.Number == -1) return false;
  return current.Number == -1 || Area(later) < Area(current);
}

const VideoStream* FindSubstitute(const StreamFormat& format, const SystemDirectory& directory) {
  if (format.Standard == standard::kJpeg) return nullptr;
  const std::uint32_t id = static_cast<std::uint32_t>(format.ID);
  const std::int32_t camera = static_cast<std::int32_t>(id & kCameraMask);

  const VideoStream* chosen = nullptr;
  if ((id & ~kCameraMask) != 0) {
    const VideoStream* first = directory.FindStream(camera);
    if (first != nullptr && IsStillImages(*first)) chosen = first;
  }
  for (const VideoStream* stream : directory.StreamsOfCamera(camera)) {
    if (!IsStillImages(*stream)) continue;
    if (chosen == nullptr || IsBetter(stream->format, chosen->format)) chosen = stream;
  }
  return chosen;
}

}  // namespace

StreamSelection::StreamSelection(const std::set<SourceId>& wanted,
                                 const SystemDirectory& directory) {
  wanted_.reserve(wanted.size());
  for (const SourceId source : wanted) {
    std::optional<VideoStream>& substitute = wanted_[source.value];
    const VideoStream* stream = directory.StreamOfSource(source);
    if (stream == nullptr) continue;
    const VideoStream* chosen = FindSubstitute(stream->format, directory);
    if (chosen == nullptr) continue;
    substitute = *chosen;
    substitutes_.insert(chosen->format.ID);
  }
}

bool StreamSelection::Takes(const VideoStream& stream) const {
  // A camera's pictures may come under the same source as its coded stream.
  if (substitutes_.count(stream.format.ID) != 0) return true;
  const auto found = wanted_.find(stream.source.value);
  return found != wanted_.end() && !found->second.has_value();
}

const VideoStream* StreamSelection::SubstituteOf(SourceId source) const {
  const auto found = wanted_.find(source.value);
  return found != wanted_.end() && found->second ? &*found->second : nullptr;
}

}  // namespace tvx
