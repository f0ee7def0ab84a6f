// How a run stands, in place of what happens: a picture on a terminal that is drawn anew in place,
// elsewhere a line when something has changed, at most one a second of the world.
//
// What becomes of a notification between its event and its status is the plug-in's own: one that
// waits for its video, one that is ready and one that is being composed look the same from here.
//
// No mode of the terminal outlives a drawing, and the cursor stands below the picture between two of
// them: however the process ends, there is nothing to restore.
//
// Threads: under the timeline's lock, as every printer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "simulated_host/timeline.h"
#include "text/palette.h"

namespace tvx::tool {

class WatchPrinter : public TimelinePrinter {
 public:
  // The file is not owned. speed: how many times faster than the world's the plug-in's time passes.
  WatchPrinter(std::FILE* out, double speed);

  void Print(double seconds, const HostEvent& event) override;
  void Refresh(double seconds) override;
  void Finish(double seconds) override;

 private:
  struct Stream {
    FeedStart feed;
    bool ended = false;
    std::uintmax_t offered = 0;
    std::uintmax_t taken = 0;
    std::uintmax_t returned = 0;
    // Frames that the plug-in holds. One may come back before its Write has said that it was taken.
    std::uintmax_t Held() const { return returned < taken ? taken - returned : 0; }
  };
  struct Line {
    std::string text;
    Colour colour = Colour::Plain;
  };

  template <typename Other>
  void Follow(const Other& /*not shown*/) {}
  void Follow(const NotificationsAsked& asked);
  void Follow(const ProfileReport& report);
  void Follow(const RetryChange& change);
  void Follow(const Launch& launch);
  void Follow(const LaunchFailure& failure) { programs_.erase(failure.request); }
  void Follow(const ProgramEnd& end) { programs_.erase(end.request); }
  void Follow(const MailServerChange& change) { mailServer_ = InWords(change.what); }
  void Follow(const Fault& /*fault*/) { ++faults_; }
  void Follow(const FeedStart& feed) { streams_[feed.stream] = {feed}; }
  void Follow(const FeedEnd& feed) { streams_[feed.stream].ended = true; }
  void Follow(const FrameWrite& frame);
  void Follow(const FrameReturn& frame) { ++streams_[frame.stream].returned; }

  std::vector<std::string> Figures() const;
  static std::string DescribeStream(std::uint32_t id, const Stream& stream);
  void PrintLine(double seconds);
  void Draw(double seconds);

  std::FILE* const out_;
  const double speed_;
  const bool onTerminal_;
  const Palette palette_;

  int asked_ = 0;                            // notifications, by events
  std::multiset<std::int32_t> notReported_;  // profiles of those without a status
  int delivered_ = 0;
  int failed_ = 0;
  std::set<std::string> queue_;                    // files of the plug-in's retry queue
  std::map<std::uint32_t, std::string> programs_;  // the file that each sends, or nothing
  std::string mailServer_ = "mail server not the host's";
  int faults_ = 0;
  std::map<std::uint32_t, Stream> streams_;

  std::deque<Line> lastFaults_;  // among log lines they would soon be gone
  std::deque<Line> lastLog_;
  // Not on a terminal.
  std::string shown_;    // the last line
  double nextLine_ = 0;  // seconds
  // On a terminal.
  std::size_t rows_ = 0;     // of the last picture
  std::size_t columns_ = 0;  // of the terminal then
};

}  // namespace tvx::tool
