#include "simulated_host/frame_feed.h"

#include <signal.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace tvx::tool {
namespace {

// Hosts keep records of their own in front of a frame's coded data.
constexpr std::uint32_t kPayloadOffset = 48;
constexpr int kHostRecord = 0xA5;

// Seconds of video, so that ffmpeg may be held up for a moment without holding up the camera.
constexpr std::size_t kReadAhead = 1 << 20;

double Seconds(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

FrameFeed::FrameFeed(const Camera& camera, double pace, FrameBooks& books, PluginLibrary& plugin,
                     Timeline& timeline, Progress& progress)
    : camera_(camera),
      pace_(pace),
      books_(books),
      plugin_(plugin),
      timeline_(timeline),
      progress_(progress) {
  Program::Reports reports;
  reports.output = [this](const ProgramOutput& output) { return TakeOutput(output); };
  reports.ended = [this](int waitStatus, double) { waitStatus_ = waitStatus; };
  video_ = std::make_shared<Program>(loop_, 0, std::move(reports));
  if (const int error = video_->Start(VideoProgramOf(camera))) {
    throw std::system_error(error, std::generic_category(), "ffmpeg");
  }
  progress_.CameraStarts();
  thread_ = std::thread([this] {
    video_->Feed({}, true);
    video_->Run();
    loop_.run();
    Finish();
  });
}

FrameFeed::~FrameFeed() {
  boost::asio::post(loop_, [this] { Stop(); });
  thread_.join();
}

bool FrameFeed::TakeOutput(const ProgramOutput& output) {
  const std::string_view text = output.Text();
  if (output.header.kind == chunk_kind::kErrors) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    return true;
  }
  bytes_.erase(0, begin_);
  begin_ = 0;
  bytes_ += text;
  AwaitNext();
  if (!frame_ && bytes_.size() > kMaxFrame) video_->Signal(SIGKILL);
  return WantsMore();
}

bool FrameFeed::WantsMore() const {
  return !frame_ || bytes_.size() - begin_ < kReadAhead;
}

void FrameFeed::AwaitNext() {
  if (frame_ || stopped_) return;
  frame_ = FindFrame(std::string_view(bytes_).substr(begin_));
  if (!frame_) return;
  if (frames_ == 0) {
    start_ = Clock::now();
    timeline_.Record(FeedStart{camera_.stream, Describe(camera_), camera_.frames});
  }
  // Counted from the beginning, so that no frame's delay delays all later ones.
  const std::chrono::duration<double> elapsed(frames_ / (camera_.frameRate * pace_));
  due_.expires_at(start_ + std::chrono::duration_cast<Clock::duration>(elapsed));
  due_.async_wait([this](const boost::system::error_code& error) {
    if (!error) FeedNext();
  });
}

void FrameFeed::FeedNext() {
  late_ = std::max(late_, Clock::now() - due_.expiry());
  const std::size_t size = kPayloadOffset + frame_->size;
  std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]);
  std::memset(bytes.get(), kHostRecord, kPayloadOffset);
  std::memcpy(bytes.get() + kPayloadOffset, bytes_.data() + begin_ + frame_->begin, frame_->size);
  const void* handle = books_.Offer(camera_.stream, std::move(bytes), size);
  const bool taken = plugin_.SendFrame(
      {handle, static_cast<std::uint32_t>(size), camera_.stream, frame_->key, kPayloadOffset});
  books_.Answered(handle, taken);
  if (++frames_ == 1) progress_.CameraFeeds();

  begin_ += frame_->begin + frame_->size;
  frame_.reset();
  AwaitNext();
  if (WantsMore()) video_->ReadOn();
}

void FrameFeed::Stop() {
  stopped_ = true;
  due_.cancel();
  frame_.reset();
  video_->Signal(SIGKILL);
  video_->ReadOn();
}

void FrameFeed::Finish() {
  if (!stopped_ && (waitStatus_ != 0 || begin_ != bytes_.size())) {
    timeline_.Record(
        Fault{"ffmpeg failed to deliver the video of stream " + std::to_string(camera_.stream)});
  }
  if (frames_ == 0) progress_.CameraFeeds();
  const double lasted = frames_ == 0 ? 0 : Seconds(Clock::now() - start_);
  timeline_.Record(FeedEnd{camera_.stream, frames_, lasted, Seconds(late_)});
}

}  // namespace tvx::tool
