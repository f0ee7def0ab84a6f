#include "video/video_buffer_set.h"

#include <utility>

#include "base/clock.h"

namespace tvx {
namespace {

// An offset may point at the end: such a frame has no payload, but its buffer counts.
bool IsUsable(const IncomingFrame& frame) {
  return frame.handle != nullptr && frame.payloadOffset <= frame.length;
}

}  // namespace

VideoBufferSet::VideoBufferSet(HostServiceEntry host)
    : host_(host), directory_(std::make_shared<const SystemDirectory>()) {}

void VideoBufferSet::SelectStreams(std::shared_ptr<const SystemDirectory> directory,
                                   const std::set<SourceId>& wanted, FrameBin& bin) {
  selection_ = StreamSelection(wanted, *directory);
  directory_ = std::move(directory);
  for (auto entry = channels_.begin(); entry != channels_.end();) {
    Channel& channel = entry->second;
    const VideoStream* stream = directory_->FindStream(entry->first);
    if (stream == nullptr || stream->source != channel.video.Source()) {
      entry = DropChannel(entry, bin);
    } else {
      channel.stream = KeptStream(entry->first);
      ++entry;
    }
  }
}

VideoBufferSet::ChannelMap::iterator VideoBufferSet::DropChannel(ChannelMap::iterator channel,
                                                                 FrameBin& bin) noexcept {
  channel->second.video.Clear(bin);
  return channels_.erase(channel);
}

const VideoStream* VideoBufferSet::KeptStream(std::int32_t streamId) const {
  const VideoStream* stream = directory_->FindStream(streamId);
  return stream != nullptr && selection_.Takes(*stream) ? stream : nullptr;
}

VideoBufferSet::Channel* VideoBufferSet::ChannelForFrame(std::int32_t streamId) {
  const auto found = channels_.find(streamId);
  if (found != channels_.end()) {
    return found->second.stream != nullptr ? &found->second : nullptr;
  }
  const VideoStream* stream = KeptStream(streamId);
  if (stream == nullptr) return nullptr;
  return &channels_.try_emplace(streamId, *stream, byteLimit_).first->second;
}

bool VideoBufferSet::TakeFrame(const IncomingFrame& incoming, FrameBin& bin) {
  if (byteLimit_ == 0 || !IsUsable(incoming)) return false;
  Channel* channel = ChannelForFrame(incoming.streamId);
  if (channel == nullptr) return false;

  const auto data = channel->frames.Make(incoming.handle, incoming.length);
  const VideoFrame frame{TickNow(), incoming.type, incoming.payloadOffset, data};
  if (!channel->video.TakeFrame(frame, channel->stream->format, bin)) return false;
  // Only now, when nothing can fail any more: until here a buffer that is let go stays the host's.
  data->TakeOver(host_);
  return true;
}

std::shared_ptr<CVideoEmailStream> VideoBufferSet::TakeClip(std::int32_t streamId,
                                                            std::int32_t preTriggerSeconds,
                                                            std::int32_t maxSeconds,
                                                            std::weak_ptr<INotifyReady> ready) {
  const auto found = channels_.find(streamId);
  if (found == channels_.end()) return nullptr;
  auto clip = found->second.video.TakeClip(TickNow(), preTriggerSeconds, maxSeconds,
                                           std::move(ready), waiting_.Tally());
  waiting_.Add(clip);
  return clip;
}

bool VideoBufferSet::KeepWaitingWithin(std::uint64_t limit, FrameBin& bin) {
  bool any = false;
  while (waiting_.Bytes() > limit && waiting_.LetGoOldest(bin)) any = true;
  if (any) DropCompleteClips(bin);
  return any;
}

void VideoBufferSet::DropCompleteClips(FrameBin& bin) noexcept {
  for (auto& entry : channels_) entry.second.video.DropCompleteClips(bin);
}

void VideoBufferSet::SetByteLimit(std::uint32_t byteLimit) {
  byteLimit_ = byteLimit;
  for (auto& entry : channels_) entry.second.video.SetByteLimit(byteLimit);
}

const ChannelVideo* VideoBufferSet::FindChannel(std::int32_t streamId) const {
  const auto found = channels_.find(streamId);
  return found == channels_.end() ? nullptr : &found->second.video;
}

}  // namespace tvx
