// A run of frame groups within a byte limit: the rolling history of a stream, or a part of a clip.
//
// Owns:    one shared reference for each frame held. Bytes and frames are running totals.
// Threads: no lock of its own. Changed under the service's intake mutex only; a buffer that no
//          longer changes may be read from any thread.
// Limits:  bytes, kMaxHistoryFrames, and 20 pictures for a stream of still images; the oldest whole
//          group is dropped first.
// Errors:  a frame that does not fit is silently refused. Only std::bad_alloc is thrown, with totals
//          intact.
#pragma once

#include <cstdint>
#include <list>

#include "config/stream_format.h"
#include "video/frame_bin.h"
#include "video/video_frame.h"

namespace tvx {

class VideoBuffer {
 public:
  // Empty.
  VideoBuffer(const StreamFormat& format, std::uint32_t byteLimit)
      : format_(format), byteLimit_(byteLimit) {}

  const StreamFormat& Format() const { return format_; }
  std::uint32_t ByteLimit() const { return byteLimit_; }
  std::uint32_t Bytes() const { return bytes_; }
  std::uint32_t Frames() const { return frames_; }
  bool Empty() const { return groups_.empty(); }

  // Oldest first. A list, because its nodes change hands (history to bin, held-back part to clip)
  // without an allocation that could fail halfway.
  const std::list<FrameGroup>& Groups() const { return groups_; }

  // Ticks; 0 when empty. The span is taken modulo 2^32.
  std::uint32_t OldestTime() const { return Empty() ? 0 : groups_.front().FirstArrival(); }
  std::uint32_t NewestTime() const { return Empty() ? 0 : groups_.back().LastArrival(); }
  std::uint32_t Span() const { return NewestTime() - OldestTime(); }

  // Applies from the next frame on; what is held stays.
  void SetByteLimit(std::uint32_t byteLimit) { byteLimit_ = byteLimit; }

  // Appends a frame, dropping the oldest groups into the bin to make room for it; a group that it
  // begins is given the headers. False when the frame was refused: a dependent frame without its
  // group, or a frame that does not fit.
  bool Add(const VideoFrame& frame, const KnownHeaders& headers, FrameBin& bin);

  // Whether so many bytes and frames fit in without a group being dropped.
  bool HasRoomFor(std::uint32_t bytes, std::size_t frames) const;

  // Takes the frame out again if it is the newest one held. The caller holds a reference too.
  void Forget(const FrameData& data) noexcept;

  // Puts a copy of a group, which shares its frames, before all others.
  void CopyToFront(const FrameGroup& group);

  // Moves the newest group to the front of another buffer. REQUIRES: not empty.
  void MoveNewestToFrontOf(VideoBuffer& other) noexcept;

  // REQUIRES: not empty.
  void DropOldest(FrameBin& bin) noexcept;

  void Clear(FrameBin& bin) noexcept;

  // Clears the buffer for a stream that has changed its format.
  void Restart(const StreamFormat& format, FrameBin& bin) noexcept;

 private:
  void Append(FrameGroup& group, const VideoFrame& frame);

  StreamFormat format_;
  std::uint32_t byteLimit_;
  std::uint32_t bytes_ = 0;
  std::uint32_t frames_ = 0;
  bool waitForKeyFrame_ = false;  // the newest group has a gap, so its later frames are of no use
  std::list<FrameGroup> groups_;
};

}  // namespace tvx
