#include "video/video_buffer.h"

#include <algorithm>
#include <iterator>

#include "base/input_limits.h"

namespace tvx {
namespace {

// Pictures that a history of still images may hold before the next one comes in.
constexpr std::size_t kPicturesBefore = 19;

// The most frames that a new group is given room for on the strength of the one before it.
constexpr std::size_t kLikelyFrames = 256;

std::uint32_t FrameCount(const FrameGroup& group) {
  return static_cast<std::uint32_t>(group.frames.size());
}

}  // namespace

bool VideoBuffer::Add(const VideoFrame& frame, const KnownHeaders& headers, FrameBin& bin) {
  if (frame.IsKey()) {
    waitForKeyFrame_ = false;
  } else if (waitForKeyFrame_) {
    return false;
  }
  if (format_.Standard == standard::kJpeg) {
    while (groups_.size() > kPicturesBefore) DropOldest(bin);
  }
  while (!HasRoomFor(frame.data->Length(), 1)) {
    if (groups_.empty()) return false;
    if (groups_.size() == 1 && !frame.IsKey()) {
      waitForKeyFrame_ = true;
      return false;
    }
    DropOldest(bin);
  }

  if (frame.IsKey()) {
    // Filled before it is linked in, so that a failed allocation leaves no empty group behind.
    std::list<FrameGroup> fresh(1);
    fresh.front().headers = headers;
    Append(fresh.front(), frame);
    groups_.splice(groups_.end(), fresh);
    return true;
  }
  if (groups_.empty()) return false;
  FrameGroup& newest = groups_.back();
  if (newest.frames.size() == 1 && groups_.size() > 1) {
    // The groups of a stream are mostly of one length: one block for all frames, hardly any slack.
    newest.frames.reserve(std::min(std::prev(groups_.end(), 2)->frames.size(), kLikelyFrames));
  }
  Append(newest, frame);
  return true;
}

bool VideoBuffer::HasRoomFor(std::uint32_t bytes, std::size_t frames) const {
  return std::uint64_t{bytes_} + bytes <= byteLimit_ && frames_ + frames <= kMaxHistoryFrames;
}

void VideoBuffer::Append(FrameGroup& group, const VideoFrame& frame) {
  group.frames.push_back(frame);
  group.bytes += frame.data->Length();
  bytes_ += frame.data->Length();
  ++frames_;
}

void VideoBuffer::Forget(const FrameData& data) noexcept {
  if (groups_.empty()) return;
  FrameGroup& newest = groups_.back();
  if (newest.frames.back().data.get() != &data) return;
  newest.frames.pop_back();
  newest.bytes -= data.Length();
  bytes_ -= data.Length();
  --frames_;
  if (newest.frames.empty()) groups_.pop_back();
}

void VideoBuffer::CopyToFront(const FrameGroup& group) {
  groups_.push_front(group);
  bytes_ += group.bytes;
  frames_ += FrameCount(group);
}

void VideoBuffer::MoveNewestToFrontOf(VideoBuffer& other) noexcept {
  const auto newest = std::prev(groups_.end());
  bytes_ -= newest->bytes;
  frames_ -= FrameCount(*newest);
  other.bytes_ += newest->bytes;
  other.frames_ += FrameCount(*newest);
  other.groups_.splice(other.groups_.begin(), groups_, newest);
}

void VideoBuffer::DropOldest(FrameBin& bin) noexcept {
  bytes_ -= groups_.front().bytes;
  frames_ -= FrameCount(groups_.front());
  bin.groups.splice(bin.groups.end(), groups_, groups_.begin());
}

void VideoBuffer::Clear(FrameBin& bin) noexcept {
  bin.groups.splice(bin.groups.end(), groups_);
  bytes_ = 0;
  frames_ = 0;
}

void VideoBuffer::Restart(const StreamFormat& format, FrameBin& bin) noexcept {
  Clear(bin);
  format_ = format;
}

}  // namespace tvx
