// Feeds one camera's frames to the plug-in, at the pace at which the camera takes them.
//
// Owns:    a thread, and the program that the pictures come from, until destruction.
// Threads: construct and destroy on one, while the host's event loop runs; frames are written on
//          the own thread.
// Limits:  kMaxFrame for a frame.
// Errors:  a program that cannot be started is a std::system_error; one that fails is a fault in
//          the timeline.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "simulated_host/camera.h"
#include "simulated_host/frame_books.h"
#include "simulated_host/plugin_library.h"
#include "simulated_host/program.h"
#include "simulated_host/progress.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

class FrameFeed {
 public:
  static constexpr std::size_t kMaxFrame = 32u << 20;

  // A pace of 2 is twice as fast as real time. All references must outlive this object.
  FrameFeed(const Camera& camera, double pace, FrameBooks& books, PluginLibrary& plugin,
            Timeline& timeline, Progress& progress);
  // Ends the feed; a Write under way is waited for.
  ~FrameFeed();
  FrameFeed(const FrameFeed&) = delete;
  FrameFeed& operator=(const FrameFeed&) = delete;

 private:
  using Clock = std::chrono::steady_clock;

  bool TakeOutput(const ProgramOutput& output);
  bool WantsMore() const;
  void AwaitNext();
  void FeedNext();
  void Stop();
  void Finish();

  const Camera camera_;
  const double pace_;
  FrameBooks& books_;
  PluginLibrary& plugin_;
  Timeline& timeline_;
  Progress& progress_;
  // The own thread's.
  boost::asio::io_context loop_;
  boost::asio::steady_timer due_{loop_};
  std::shared_ptr<Program> video_;
  std::string bytes_;                // of the video, see FindFrame
  std::size_t begin_ = 0;            // what is in front has been fed
  std::optional<CodedFrame> frame_;  // waits at begin_ for its time
  int waitStatus_ = 0;
  bool stopped_ = false;
  int frames_ = 0;           // fed
  Clock::time_point start_;  // of the first frame
  Clock::duration late_{};   // the most that a frame was fed after its time
  std::thread thread_;
};

}  // namespace tvx::tool
