// One stream: its rolling history, the headers that it sent last, and the clips that still take
// frames from it.
//
// Threads: no lock of its own; every call is made under the service's intake mutex.
// Errors:  only memory exhaustion, or what a Ready throws. A frame whose intake ended in an
//          exception is held nowhere; groups that made room for it stay dropped.
#pragma once

#include <cstdint>
#include <list>
#include <memory>

#include "config/source_id.h"
#include "config/stream_format.h"
#include "video/frame_bin.h"
#include "video/video_buffer.h"
#include "video/video_email_stream.h"

namespace tvx {

class ChannelVideo {
 public:
  ChannelVideo(SourceId source, std::uint32_t byteLimit)
      : source_(source), buffer_(StreamFormat{}, byteLimit) {}
  ChannelVideo(const ChannelVideo&) = delete;
  ChannelVideo& operator=(const ChannelVideo&) = delete;

  // Offers a frame to every open clip, in the order they were cut, and to the history. True when
  // any of them holds it now. A format of other size or standard than before restarts the history
  // and finishes the clips first: no clip mixes two formats.
  bool TakeFrame(const VideoFrame& frame, const StreamFormat& format, FrameBin& bin);

  // Cuts a clip at the trigger time and, unless it is complete at once, feeds it from now on.
  std::shared_ptr<CVideoEmailStream> TakeClip(std::uint32_t triggerTime,
                                              std::int32_t preTriggerSeconds,
                                              std::int32_t maxSeconds,
                                              std::weak_ptr<INotifyReady> ready,
                                              std::shared_ptr<ClipTally> tally);

  // Lets go of clips that are complete.
  void DropCompleteClips(FrameBin& bin) noexcept;

  // Open clips keep the limit that they were cut with.
  void SetByteLimit(std::uint32_t byteLimit) { buffer_.SetByteLimit(byteLimit); }

  // Lets go of history and clips, before the channel itself goes.
  void Clear(FrameBin& bin) noexcept;

  // What the stream showed when its first frame came.
  SourceId Source() const { return source_; }
  const VideoBuffer& Buffer() const { return buffer_; }
  std::size_t OpenClips() const { return clips_.size(); }

 private:
  using Clips = std::list<std::shared_ptr<CVideoEmailStream>>;

  void LookForHeaders(const VideoFrame& frame);
  bool OfferToClips(const VideoFrame& frame, Clips& completed, FrameBin& bin);

  const SourceId source_;
  VideoBuffer buffer_;
  Clips clips_;
  KnownHeaders headers_;  // the newest ones
};

}  // namespace tvx
