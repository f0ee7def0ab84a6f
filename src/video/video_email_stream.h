// One notification's clip: frames from before and after an event of one stream.
//
// At the event the clip gets the newest group of the stream's history, and older groups are held
// back. Frames that follow are added behind; each may bring one held-back group in front, but only
// once as much time has passed after the event as lies between the newest held-back frame and the
// event. So the clip grows about evenly on both sides until its duration or its bytes are used up.
//
// Owner:   the notification, and while the clip is open its channel (channel_video.h), by shared
//          pointer.
// Threads: changed under the service's intake mutex only. Once it is complete its contents never
//          change again, and whoever was handed it under a lock may read them without one.
// Times:   ticks; differences are taken modulo 2^32.
// Errors:  only memory exhaustion throws; the clip then keeps what it had.
#pragma once

#include <cstdint>
#include <memory>

#include "video/clip_tally.h"
#include "video/frame_bin.h"
#include "video/notify_ready.h"
#include "video/video_buffer.h"

namespace tvx {

class CVideoEmailStream {
 public:
  // Cuts the clip out of a history, at the trigger time. A history of still images gives its newest
  // picture; a duration of 0 or less gives the newest two groups; both are complete at once. From
  // an empty history the clip is open and is filled by the frames that follow.
  //
  // The callback is held weakly: its notification owns the clip, so a strong reference would be a
  // cycle that keeps both, and the host's frames, alive after an unload. Whoever waits for the
  // callback has it on a list of its own.
  //
  // The tally counts what the clip holds, as long as it does.
  CVideoEmailStream(const VideoBuffer& history, std::uint32_t triggerTime,
                    std::int32_t preTriggerSeconds, std::int32_t maxSeconds,
                    std::weak_ptr<INotifyReady> ready, std::shared_ptr<ClipTally> tally);
  ~CVideoEmailStream();
  CVideoEmailStream(const CVideoEmailStream&) = delete;
  CVideoEmailStream& operator=(const CVideoEmailStream&) = delete;

  // Offers a new frame of the stream, with the stream's headers. True when the clip holds it now.
  // The frame that completes the clip calls Ready.
  bool Offer(const VideoFrame& frame, const KnownHeaders& headers, FrameBin& bin);

  // Takes in as many held-back groups as fit and completes the clip; for one that is complete
  // already, nothing.
  void Finish(FrameBin& bin);

  // Takes back the frame that was offered last; see VideoBuffer::Forget.
  void Forget(const FrameData& data) noexcept;

  // Completes the clip without any frames, as too much video waits. REQUIRES: nobody reads it yet.
  void LetGo(FrameBin& bin);
  bool WasLetGo() const { return wasLetGo_; }

  // Its place among the clips that wait (waiting_clips.h).
  void SetAge(std::uint64_t age) { age_ = age; }
  std::uint64_t Age() const { return age_; }

  bool Complete() const { return complete_; }
  std::uint32_t TriggerTime() const { return triggerTime_; }

  // The frames of the clip with their format, totals and times.
  const VideoBuffer& Contents() const { return clip_; }

 private:
  void Cut(const VideoBuffer& history, std::int32_t preTriggerSeconds);
  bool GrowsWithTime() const;
  bool Store(const VideoFrame& frame, const KnownHeaders& headers, FrameBin& bin);
  bool MayGrowBy(const VideoFrame& frame) const;
  bool MoveOneGroup() noexcept;
  void SetComplete(FrameBin& bin);
  void ClearHeldBack(FrameBin& bin) noexcept;
  void Signal();

  VideoBuffer heldBack_;  // recorded before the event and not moved into the clip yet
  VideoBuffer clip_;
  const std::uint32_t triggerTime_;
  const std::uint32_t maxDuration_;  // ms
  bool complete_ = false;
  bool wasLetGo_ = false;
  std::uint64_t age_ = 0;
  std::weak_ptr<INotifyReady> ready_;  // empty once called
  const std::shared_ptr<ClipTally> tally_;
};

}  // namespace tvx
