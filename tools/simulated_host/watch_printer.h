// The state of a run instead of its course: a picture on a terminal, or lines where there is none.
// Threads: under the timeline's lock, as every printer.
#pragma once

#include <cstdio>
#include <deque>
#include <memory>
#include <string>

#include "simulated_host/live_area.h"
#include "simulated_host/run_status.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

// Draws the state again and again in place.
class WatchScreen : public TimelinePrinter {
 public:
  // The terminal is not owned. Time passes for the plug-in at so many times the world's pace.
  WatchScreen(std::FILE* terminal, double speed) : area_(terminal), speed_(speed) {}

  void Print(double seconds, const Happening& happening) override;
  void Observe(double seconds, const Crossing& crossing) override;
  void Refresh(double seconds) override;
  void Finish(double seconds) override { Refresh(seconds); }

 private:
  void AddStreams(std::vector<LiveLine>& lines, double seconds) const;

  LiveArea area_;
  const double speed_;
  RunStatus status_;
  std::deque<LiveLine> log_;     // the last lines
  std::deque<LiveLine> faults_;  // the last ones: among log lines they would soon be gone
};

// Prints the state in one line when it has changed, at most once a second of the world; faults at
// once.
class WatchLines : public TimelinePrinter {
 public:
  // The file is not owned.
  WatchLines(std::FILE* out, double speed) : out_(out), speed_(speed) {}

  void Print(double seconds, const Happening& happening) override;
  void Observe(double seconds, const Crossing& crossing) override;
  void Refresh(double seconds) override;
  void Finish(double seconds) override { PrintIfChanged(seconds); }

 private:
  void PrintIfChanged(double seconds);

  std::FILE* const out_;
  const double speed_;
  RunStatus status_;
  std::string last_;
  double nextTime_ = 0;  // seconds
};

// One or the other, by what the file is.
std::unique_ptr<TimelinePrinter> MakeWatchPrinter(std::FILE* out, double speed);

}  // namespace tvx::tool
