#include "video/video_email_stream.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace tvx {
namespace {

// Kept in the width of a tick difference; what does not fit is longer than any clip can get.
std::uint32_t DurationOf(std::int32_t seconds) {
  const std::uint64_t milliseconds =
      std::uint64_t{1000} * static_cast<std::uint32_t>(std::max(seconds, std::int32_t{0}));
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(milliseconds, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace

CVideoEmailStream::CVideoEmailStream(const VideoBuffer& history, std::uint32_t triggerTime,
                                     std::int32_t preTriggerSeconds, std::int32_t maxSeconds,
                                     std::weak_ptr<INotifyReady> ready)
    : heldBack_(history.Format(), history.ByteLimit()),
      clip_(history.Format(), history.ByteLimit()),
      triggerTime_(triggerTime),
      maxDuration_(DurationOf(maxSeconds)),
      ready_(std::move(ready)) {
  if (history.Empty()) return;
  const std::list<FrameGroup>& groups = history.Groups();
  clip_.CopyToFront(groups.back());
  const bool isPicture = history.Format().Standard == standard::kJpeg;
  if (!GrowsWithTime() && !isPicture && groups.size() > 1) {
    clip_.CopyToFront(*std::prev(groups.end(), 2));
  }
  complete_ = !GrowsWithTime() || clip_.Span() >= maxDuration_;
  if (complete_) {
    Signal();
    return;
  }
  const std::int64_t preTrigger = std::int64_t{preTriggerSeconds} * 1000;
  for (auto group = std::next(groups.rbegin()); group != groups.rend(); ++group) {
    const std::uint32_t age = triggerTime_ - group->LastArrival();
    if (preTrigger < std::int64_t{age}) break;
    heldBack_.CopyToFront(*group);
  }
}

bool CVideoEmailStream::Offer(const VideoFrame& frame, FrameBin& bin) {
  if (complete_) return false;
  if (!GrowsWithTime()) {
    // Open only because the history was empty at the event: whatever comes first ends the wait, so
    // that such a clip never holds more than one picture.
    const bool stored = clip_.Add(frame, bin);
    SetComplete(bin);
    return stored;
  }
  if (!HasRoomFor(frame)) {
    SetComplete(bin);
    return false;
  }
  if (!clip_.Add(frame, bin)) return false;
  if (!heldBack_.Empty() &&
      frame.arrivalTime - triggerTime_ >= triggerTime_ - heldBack_.NewestTime() &&
      !MoveOneGroup()) {
    heldBack_.Clear(bin);
  }
  if (clip_.Span() >= maxDuration_ || clip_.Bytes() >= clip_.ByteLimit()) SetComplete(bin);
  return true;
}

void CVideoEmailStream::Finish(FrameBin& bin) {
  if (complete_) return;
  while (MoveOneGroup()) {
  }
  SetComplete(bin);
}

bool CVideoEmailStream::GrowsWithTime() const {
  return clip_.Format().Standard != standard::kJpeg && clip_.ByteLimit() != 0 && maxDuration_ != 0;
}

bool CVideoEmailStream::HasRoomFor(const VideoFrame& frame) const {
  if (std::uint64_t{clip_.Bytes()} + frame.data->Length() > clip_.ByteLimit()) return false;
  return clip_.Empty() || frame.arrivalTime - clip_.OldestTime() <= maxDuration_;
}

bool CVideoEmailStream::MoveOneGroup() noexcept {
  if (heldBack_.Empty()) return false;
  const FrameGroup& group = heldBack_.Groups().back();
  if (clip_.NewestTime() - group.FirstArrival() > maxDuration_) return false;
  if (std::uint64_t{clip_.Bytes()} + group.bytes > clip_.ByteLimit()) return false;
  heldBack_.MoveNewestToFrontOf(clip_);
  return true;
}

void CVideoEmailStream::SetComplete(FrameBin& bin) {
  complete_ = true;
  heldBack_.Clear(bin);  // of no more use, and the host is short of buffers
  Signal();
}

void CVideoEmailStream::Signal() {
  const std::shared_ptr<INotifyReady> ready = std::exchange(ready_, {}).lock();
  if (ready) ready->Ready();
}

}  // namespace tvx
