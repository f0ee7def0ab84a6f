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
                                     std::weak_ptr<INotifyReady> ready,
                                     std::shared_ptr<ClipTally> tally)
    : heldBack_(history.Format(), history.ByteLimit()),
      clip_(history.Format(), history.ByteLimit()),
      triggerTime_(triggerTime),
      maxDuration_(DurationOf(maxSeconds)),
      ready_(std::move(ready)),
      tally_(std::move(tally)) {
  if (!history.Empty()) Cut(history, preTriggerSeconds);
  if (complete_) Signal();
  // Last, as nobody would take back what was counted before a failure.
  tally_->Hold(clip_.Groups());
  tally_->Hold(heldBack_.Groups());
}

CVideoEmailStream::~CVideoEmailStream() {
  tally_->Drop(clip_.Groups());
  tally_->Drop(heldBack_.Groups());
}

void CVideoEmailStream::Cut(const VideoBuffer& history, std::int32_t preTriggerSeconds) {
  const std::list<FrameGroup>& groups = history.Groups();
  clip_.CopyToFront(groups.back());
  const bool isPicture = history.Format().Standard == standard::kJpeg;
  if (!GrowsWithTime() && !isPicture && groups.size() > 1) {
    clip_.CopyToFront(*std::prev(groups.end(), 2));
  }
  complete_ = !GrowsWithTime() || clip_.Span() >= maxDuration_;
  if (complete_) return;
  const std::int64_t preTrigger = std::int64_t{preTriggerSeconds} * 1000;
  for (auto group = std::next(groups.rbegin()); group != groups.rend(); ++group) {
    const std::uint32_t age = triggerTime_ - group->LastArrival();
    if (preTrigger < std::int64_t{age}) break;
    heldBack_.CopyToFront(*group);
  }
}

bool CVideoEmailStream::Offer(const VideoFrame& frame, const KnownHeaders& headers, FrameBin& bin) {
  if (complete_) return false;
  if (!GrowsWithTime()) {
    // Open only because the history was empty at the event: whatever comes first ends the wait, so
    // that such a clip never holds more than one picture.
    const bool stored = Store(frame, headers, bin);
    SetComplete(bin);
    return stored;
  }
  if (!MayGrowBy(frame)) {
    SetComplete(bin);
    return false;
  }
  if (!Store(frame, headers, bin)) return false;
  if (!heldBack_.Empty() &&
      frame.arrivalTime - triggerTime_ >= triggerTime_ - heldBack_.NewestTime() &&
      !MoveOneGroup()) {
    ClearHeldBack(bin);
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

bool CVideoEmailStream::Store(const VideoFrame& frame, const KnownHeaders& headers, FrameBin& bin) {
  // Nothing of the clip is dropped for it: there is room, or the clip is empty.
  if (!clip_.Add(frame, headers, bin)) return false;
  tally_->Hold(frame);
  return true;
}

bool CVideoEmailStream::MayGrowBy(const VideoFrame& frame) const {
  if (!clip_.HasRoomFor(frame.data->Length(), 1)) return false;
  return clip_.Empty() || frame.arrivalTime - clip_.OldestTime() <= maxDuration_;
}

bool CVideoEmailStream::MoveOneGroup() noexcept {
  if (heldBack_.Empty()) return false;
  const FrameGroup& group = heldBack_.Groups().back();
  if (clip_.NewestTime() - group.FirstArrival() > maxDuration_) return false;
  if (!clip_.HasRoomFor(group.bytes, group.frames.size())) return false;
  heldBack_.MoveNewestToFrontOf(clip_);
  return true;
}

void CVideoEmailStream::SetComplete(FrameBin& bin) {
  complete_ = true;
  ClearHeldBack(bin);  // of no more use, and the host is short of buffers
  Signal();
}

void CVideoEmailStream::ClearHeldBack(FrameBin& bin) noexcept {
  tally_->Drop(heldBack_.Groups());
  heldBack_.Clear(bin);
}

void CVideoEmailStream::LetGo(FrameBin& bin) {
  tally_->Drop(clip_.Groups());
  clip_.Clear(bin);
  wasLetGo_ = true;
  SetComplete(bin);
}

void CVideoEmailStream::Forget(const FrameData& data) noexcept {
  if (clip_.Empty()) return;
  const VideoFrame newest = clip_.Groups().back().frames.back();
  if (newest.data.get() != &data) return;
  clip_.Forget(data);
  tally_->Drop(newest);
}

void CVideoEmailStream::Signal() {
  const std::shared_ptr<INotifyReady> ready = std::exchange(ready_, {}).lock();
  if (ready) ready->Ready();
}

}  // namespace tvx
