// The 64 cameras: what they show, and the threads that feed their frames to the plug-in.
//
// Every codec has one short video, read once and cut into frames; a camera shows it over and over,
// at its own rate and from its own place on.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "simulated_host/camera.h"
#include "simulated_host/frame_books.h"
#include "simulated_host/plugin_library.h"
#include "soak/frame_tally.h"

namespace tvx::soak {

constexpr int kCameras = 64;
constexpr int kVideoWidth = 320;
constexpr int kVideoHeight = 240;

// A third each of H.264, MPEG-4 and JPEG, 10 to 25 frames a second.
std::vector<tool::Camera> MakeCameras();

struct CodedFrame {
  std::vector<std::uint8_t> bytes;
  bool key;
};
// A video whose first frame is a key frame. Throws std::runtime_error when the file is none.
std::vector<CodedFrame> ReadVideo(const std::string& path, tool::VideoCodec codec);

class CameraThreads {
 public:
  struct Videos {
    std::vector<CodedFrame> h264;
    std::vector<CodedFrame> mpeg4;
    std::vector<CodedFrame> jpeg;
  };

  // Fills every history, and then feeds until stopped. The references must outlive this object.
  CameraThreads(const std::vector<tool::Camera>& cameras, const Videos& videos,
                tool::FrameBooks& books, tool::PluginLibrary& plugin, FrameTally& tally);
  // Waits for the Writes under way.
  ~CameraThreads();
  CameraThreads(const CameraThreads&) = delete;
  CameraThreads& operator=(const CameraThreads&) = delete;

  // Every camera has filled its history.
  bool Filled() const { return camerasToFill_ == 0; }

 private:
  struct Feed {
    const tool::Camera* camera;
    const std::vector<CodedFrame>* video;
    std::size_t next;  // frame of the video
    double due;        // seconds since the thread's beginning
  };

  void Run(std::vector<Feed> feeds);
  void Fill(Feed& feed);
  std::size_t Write(Feed& feed);

  tool::FrameBooks& books_;
  tool::PluginLibrary& plugin_;
  FrameTally& tally_;
  std::atomic<int> camerasToFill_;
  std::atomic<bool> stopped_{false};
  std::vector<std::thread> threads_;
};

}  // namespace tvx::soak
