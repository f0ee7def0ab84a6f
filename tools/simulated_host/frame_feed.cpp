#include "simulated_host/frame_feed.h"

#include <algorithm>
#include <boost/chrono/duration.hpp>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tvx::tool {
namespace {

// Hosts keep records of their own in front of a frame's coded data.
constexpr std::uint32_t kPayloadOffset = 48;
constexpr int kHostRecord = 0xA5;

constexpr std::size_t kReadSize = 65536;

double Seconds(boost::chrono::steady_clock::duration duration) {
  return boost::chrono::duration<double>(duration).count();
}

}  // namespace

FrameFeed::FrameFeed(const Camera& camera, double pace, FrameBooks& books, PluginLibrary& plugin,
                     Timeline& timeline, Progress& progress)
    : camera_(camera),
      pace_(pace),
      books_(books),
      plugin_(plugin),
      timeline_(timeline),
      progress_(progress),
      video_(VideoProgramOf(camera)) {
  progress_.CameraStarts();
  thread_ = std::thread([this] { Run(); });
}

FrameFeed::~FrameFeed() {
  {
    MutexLock lock(mutex_);
    stopped_ = true;
    changed_.NotifyAll();
  }
  video_.Kill();
  thread_.join();
}

void FrameFeed::Run() {
  try {
    FeedAll();
  } catch (const AccessUnitError& error) {
    timeline_.Record(
        Fault{"the video of stream " + std::to_string(camera_.stream) + ": " + error.what()});
    video_.Kill();
  }
  if (!video_.EndedWell()) {
    timeline_.Record(
        Fault{"ffmpeg failed to deliver the video of stream " + std::to_string(camera_.stream)});
  }
  if (frames_ == 0) progress_.CameraFeeds();
  const double lasted = frames_ == 0 ? 0 : Seconds(Clock::now() - begin_);
  timeline_.Record(FeedEnd{camera_.stream, frames_, lasted, Seconds(late_)});
}

void FrameFeed::FeedAll() {
  AccessUnitSplitter splitter(camera_.codec);
  std::vector<char> bytes(kReadSize);
  for (std::size_t length = 1; length > 0;) {
    length = video_.Read(bytes.data(), bytes.size());
    if (length > 0) {
      splitter.Add(bytes.data(), length);
    } else {
      splitter.End();
    }
    while (const std::optional<AccessUnit> unit = splitter.Next()) {
      if (!AwaitNext()) return;
      Write(*unit);
    }
  }
}

// Until the next frame's time has come; false when the feed is to end.
bool FrameFeed::AwaitNext() {
  if (frames_ == 0) {
    begin_ = Clock::now();
    timeline_.Record(
        FeedStart{camera_.stream, Describe(camera_), !camera_.file.empty(), camera_.frames});
  }
  // Counted from the beginning, so that no frame's delay delays all later ones.
  const boost::chrono::duration<double> elapsed(frames_ / (camera_.frameRate * pace_));
  const auto due = begin_ + boost::chrono::duration_cast<Clock::duration>(elapsed);
  MutexLock lock(mutex_);
  while (!stopped_ && Clock::now() < due) changed_.WaitUntil(mutex_, due);
  late_ = std::max(late_, Clock::now() - due);
  return !stopped_;
}

void FrameFeed::Write(const AccessUnit& unit) {
  const std::size_t size = kPayloadOffset + unit.size;
  std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]);
  std::memset(bytes.get(), kHostRecord, kPayloadOffset);
  std::memcpy(bytes.get() + kPayloadOffset, unit.data, unit.size);
  const void* handle = books_.Offer(camera_.stream, std::move(bytes), size);
  const bool taken = plugin_.SendFrame(
      {handle, static_cast<std::uint32_t>(size), camera_.stream, unit.key, kPayloadOffset});
  books_.Answered(handle, taken);
  if (++frames_ == 1) progress_.CameraFeeds();
}

}  // namespace tvx::tool
