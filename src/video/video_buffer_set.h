// The frame histories of all streams: where the host's frames come in and clips are cut.
//
// Owns:    the channels with their histories, and a share in every open clip.
// Threads: no lock of its own; every call is made under the service's intake mutex. What a call
//          drops is put into the caller's bin, to be destroyed after unlocking (frame_bin.h). The
//          destructor gives frames back to the host itself, so it runs without the lock.
// Cost:    of a frame, two allocations at most beside those of open clips, no system call, no copy
//          of the payload and one look-up, whether there is one stream or thousands.
// Errors:  refusals are silent. Memory exhaustion, and an empty tick clock, throw; the frame is
//          then held nowhere and stays the host's.
// Not here: how streams are chosen (stream_selection.h), finding a clip's stream (video_source.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <unordered_map>

#include "config/source_id.h"
#include "config/system_directory.h"
#include "host/host_records.h"
#include "video/channel_video.h"
#include "video/frame_bin.h"
#include "video/frame_slab.h"
#include "video/stream_selection.h"
#include "video/waiting_clips.h"

namespace tvx {

// A frame as the host delivers it.
struct IncomingFrame {
  std::int32_t streamId = 0;
  std::uint32_t type = 0;           // kKeyFrame or a dependent frame
  std::uint32_t payloadOffset = 0;  // into the buffer
  const void* handle = nullptr;     // the host's buffer
  std::uint32_t length = 0;         // bytes of the buffer
};

class VideoBufferSet {
 public:
  static constexpr std::uint32_t kInitialByteLimit = 0xA00000;

  // Buffers go back through this entry. No stream is known, so no frame is taken.
  explicit VideoBufferSet(HostServiceEntry host);
  VideoBufferSet(const VideoBufferSet&) = delete;
  VideoBufferSet& operator=(const VideoBufferSet&) = delete;

  // Replaces what the host's document says of its streams, and the sources that are wanted. Drops
  // every channel whose stream is no longer known, or is known as that of another source: its
  // history must not end up in a mail about that one. A clip that a notification waits for stays
  // open then, and is finished when the notification is dispatched. The other channels stay, wanted
  // or not.
  // All or nothing: when memory is exhausted, the streams are chosen as before.
  void SelectStreams(std::shared_ptr<const SystemDirectory> directory,
                     const std::set<SourceId>& wanted, FrameBin& bin);

  // What SelectStreams was given, and what it made of it.
  const SystemDirectory& Directory() const { return *directory_; }
  const StreamSelection& Selection() const { return selection_; }

  // True when a history or an open clip took the frame: its buffer is the plug-in's then, and goes
  // back exactly once. False: it stays the host's. A frame without a buffer, or whose payload would
  // begin beyond its end, is refused.
  bool TakeFrame(const IncomingFrame& incoming, FrameBin& bin);

  // Cuts a clip of a stream with the current tick as trigger time. Null when no frame of the stream
  // has ever arrived (LogNoFrames is for this case). A clip that is complete at once has called
  // Ready before it is returned, so the caller looks at Complete() too.
  std::shared_ptr<CVideoEmailStream> TakeClip(std::int32_t streamId, std::int32_t preTriggerSeconds,
                                              std::int32_t maxSeconds,
                                              std::weak_ptr<INotifyReady> ready);

  // Lets go of clips that were finished from outside. A stream that falls silent would hold them,
  // and the host's frames, until its next frame.
  void DropCompleteClips(FrameBin& bin) noexcept;

  // Lets the oldest waiting clips go as long as all of them hold more than the limit. True when any
  // went. What Ready throws is passed on.
  bool KeepWaitingWithin(std::uint64_t limit, FrameBin& bin);
  std::uint64_t WaitingBytes() const { return waiting_.Bytes(); }

  // The worker takes a clip over: it waits no longer, and is not let go.
  void HandOver(const CVideoEmailStream& clip) noexcept { waiting_.Remove(clip); }

  // For each stream's history and, at 0, for refusing all frames. Open clips keep theirs, and
  // histories shrink with their next frame.
  void SetByteLimit(std::uint32_t byteLimit);

  // Null when no frame of the stream has ever been offered.
  const ChannelVideo* FindChannel(std::int32_t streamId) const;
  std::size_t Channels() const { return channels_.size(); }

 private:
  struct Channel {
    Channel(const VideoStream& kept, std::uint32_t byteLimit)
        : stream(&kept), video(kept.source, byteLimit) {}
    const VideoStream* stream;  // into the directory; null while its frames are not wanted
    ChannelVideo video;
    FrameMaker frames;
  };

  using ChannelMap = std::unordered_map<std::int32_t, Channel>;

  Channel* ChannelForFrame(std::int32_t streamId);
  const VideoStream* KeptStream(std::int32_t streamId) const;
  ChannelMap::iterator DropChannel(ChannelMap::iterator channel, FrameBin& bin) noexcept;

  const HostServiceEntry host_;
  std::uint32_t byteLimit_ = kInitialByteLimit;
  std::shared_ptr<const SystemDirectory> directory_;  // never null
  StreamSelection selection_;
  // Hashed, as every frame looks its channel up and nothing depends on an order of streams.
  ChannelMap channels_;
  WaitingClips waiting_;
};

}  // namespace tvx
