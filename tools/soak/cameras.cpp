#include "soak/cameras.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>

#include "soak/access_units.h"

namespace tvx::soak {
namespace {

constexpr std::size_t kThreads = 4;

// More than a history of the smallest size limit holds.
constexpr std::size_t kFillBytes = 1'500'000;

// How long a thread sleeps at most, so that it notices its end.
constexpr double kLongestSleep = 0.05;

}  // namespace

std::vector<tool::Camera> MakeCameras() {
  constexpr tool::VideoCodec kCodecs[] = {tool::VideoCodec::H264, tool::VideoCodec::Mpeg4,
                                          tool::VideoCodec::Jpeg};
  std::vector<tool::Camera> cameras;
  for (std::uint32_t i = 0; i < kCameras; ++i) {
    tool::Camera camera;
    camera.stream = 0x10000 | (i + 1) << 8 | 1;
    camera.codec = kCodecs[i % std::size(kCodecs)];
    camera.width = kVideoWidth;
    camera.height = kVideoHeight;
    camera.frameRate = 10 + 5 * (i / std::size(kCodecs) % 4);
    cameras.push_back(camera);
  }
  return cameras;
}

std::vector<CodedFrame> ReadVideo(const std::string& path, tool::VideoCodec codec) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  tool::AccessUnitSplitter splitter(codec);
  splitter.Add(bytes.data(), bytes.size());
  splitter.End();
  std::vector<CodedFrame> frames;
  while (const std::optional<tool::AccessUnit> unit = splitter.Next()) {
    frames.push_back({{unit->data, unit->data + unit->size}, unit->key});
  }
  if (frames.empty() || !frames.front().key) throw std::runtime_error("no video: " + path);
  return frames;
}

CameraThreads::CameraThreads(const std::vector<tool::Camera>& cameras, const Videos& videos,
                             tool::FrameBooks& books, tool::PluginLibrary& plugin,
                             FrameTally& tally)
    : books_(books),
      plugin_(plugin),
      tally_(tally),
      camerasToFill_(static_cast<int>(cameras.size())) {
  std::vector<std::vector<Feed>> feeds(kThreads);
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    const tool::Camera& camera = cameras[i];
    const auto& video = camera.codec == tool::VideoCodec::H264    ? videos.h264
                        : camera.codec == tool::VideoCodec::Mpeg4 ? videos.mpeg4
                                                                  : videos.jpeg;
    // Not all at the same moment.
    const double due = static_cast<double>(i) / static_cast<double>(cameras.size());
    feeds[i % kThreads].push_back({&camera, &video, i % video.size(), due});
  }
  for (std::vector<Feed>& share : feeds) {
    threads_.emplace_back([this, mine = std::move(share)]() mutable { Run(std::move(mine)); });
  }
}

CameraThreads::~CameraThreads() {
  stopped_ = true;
  for (std::thread& thread : threads_) thread.join();
}

void CameraThreads::Run(std::vector<Feed> feeds) {
  for (Feed& feed : feeds) Fill(feed);
  using Seconds = std::chrono::duration<double>;
  const auto begin = std::chrono::steady_clock::now();
  while (!stopped_) {
    const double now = Seconds(std::chrono::steady_clock::now() - begin).count();
    double next = now + kLongestSleep;
    for (Feed& feed : feeds) {
      if (feed.due <= now) {
        Write(feed);
        // A camera does not make up for frames that nobody fetched.
        feed.due = std::max(feed.due + 1 / feed.camera->frameRate, now);
      }
      next = std::min(next, feed.due);
    }
    std::this_thread::sleep_for(Seconds(next - now));
  }
}

void CameraThreads::Fill(Feed& feed) {
  for (std::size_t written = 0; written < kFillBytes && !stopped_;) written += Write(feed);
  --camerasToFill_;
}

std::size_t CameraThreads::Write(Feed& feed) {
  const CodedFrame& frame = (*feed.video)[feed.next];
  feed.next = (feed.next + 1) % feed.video->size();
  const std::size_t size = kHostRecordSize + frame.bytes.size();
  std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]);
  FrameTally::Mark(bytes.get(), size);
  std::memcpy(bytes.get() + kHostRecordSize, frame.bytes.data(), frame.bytes.size());
  const std::uint32_t stream = feed.camera->stream;
  const void* handle = books_.Offer(stream, std::move(bytes), size);
  const bool taken = plugin_.SendFrame(
      {handle, static_cast<std::uint32_t>(size), stream, frame.key, kHostRecordSize});
  if (taken) tally_.Taken(size);
  books_.Answered(handle, taken);
  return size;
}

}  // namespace tvx::soak
