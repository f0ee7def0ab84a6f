#include "video/channel_video.h"

#include <algorithm>
#include <utility>

#include "video/movie_code.h"

namespace tvx {
namespace {

// Identifier and number say nothing about how frames are decoded.
bool SamePictures(const StreamFormat& a, const StreamFormat& b) {
  return a.Standard == b.Standard && a.Width == b.Width && a.Height == b.Height;
}

}  // namespace

bool ChannelVideo::TakeFrame(const VideoFrame& frame, const StreamFormat& format, FrameBin& bin) {
  if (!SamePictures(buffer_.Format(), format)) {
    for (const auto& clip : clips_) clip->Finish(bin);
    buffer_.Restart(format, bin);
    headers_.reset();
  }
  if (frame.IsKey() || buffer_.Empty()) LookForHeaders(frame);
  Clips completed;
  bool taken = false;
  try {
    taken = OfferToClips(frame, completed, bin);
    if (buffer_.Add(frame, headers_, bin)) taken = true;
  } catch (...) {
    // The host will not hear that its frame was taken, so nobody may go on showing it.
    for (const auto& clip : completed) clip->Forget(*frame.data);
    for (const auto& clip : clips_) clip->Forget(*frame.data);
    bin.clips.splice(bin.clips.end(), completed);
    throw;
  }
  bin.clips.splice(bin.clips.end(), completed);
  return taken;
}

// In a key frame, or in frames of their own before it, whatever type those are of: they are short, as
// hardly any picture is.
void ChannelVideo::LookForHeaders(const VideoFrame& frame) {
  constexpr std::size_t kMostFrames = 4;
  constexpr std::uint32_t kShort = 512;
  const auto code = MovieCode(buffer_.Format().Standard);
  if (!code) return;
  const auto look = [&](const VideoFrame& at) {
    headers_ = quicktime::StreamHeaders::After(*code, {at.Payload(), at.PayloadLength()}, headers_);
  };
  if (!buffer_.Empty()) {
    const auto& frames = buffer_.Groups().back().frames;
    std::size_t before = 0;
    while (before < std::min(frames.size(), kMostFrames) &&
           frames[frames.size() - 1 - before].PayloadLength() <= kShort) {
      ++before;
    }
    for (; before > 0; --before) look(frames[frames.size() - before]);
  }
  look(frame);
}

bool ChannelVideo::OfferToClips(const VideoFrame& frame, Clips& completed, FrameBin& bin) {
  bool taken = false;
  for (auto next = clips_.begin(); next != clips_.end();) {
    const auto clip = next++;
    if ((*clip)->Offer(frame, headers_, bin)) taken = true;
    if ((*clip)->Complete()) completed.splice(completed.end(), clips_, clip);
  }
  return taken;
}

std::shared_ptr<CVideoEmailStream> ChannelVideo::TakeClip(std::uint32_t triggerTime,
                                                          std::int32_t preTriggerSeconds,
                                                          std::int32_t maxSeconds,
                                                          std::weak_ptr<INotifyReady> ready,
                                                          std::shared_ptr<ClipTally> tally) {
  auto clip = std::make_shared<CVideoEmailStream>(buffer_, triggerTime, preTriggerSeconds,
                                                  maxSeconds, std::move(ready), std::move(tally));
  if (!clip->Complete()) clips_.push_back(clip);
  return clip;
}

void ChannelVideo::DropCompleteClips(FrameBin& bin) noexcept {
  for (auto next = clips_.begin(); next != clips_.end();) {
    const auto clip = next++;
    if ((*clip)->Complete()) bin.clips.splice(bin.clips.end(), clips_, clip);
  }
}

void ChannelVideo::Clear(FrameBin& bin) noexcept {
  buffer_.Clear(bin);
  bin.clips.splice(bin.clips.end(), clips_);
}

}  // namespace tvx
