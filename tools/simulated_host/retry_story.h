// Follows the plug-in's retry queue from outside, by what it logs and launches.
//
// A printer between the timeline and the one that people read: each happening goes through, and
// where it changes the retry queue, a RetryChange follows it.
//
// Threads: under the timeline's lock, as every printer.
// Limits:  it knows what the log tells. A line that the plug-in cut short changes nothing.
#pragma once

#include <deque>
#include <memory>
#include <string>

#include "simulated_host/happening.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

// The file that a transfer sends, or nothing when the program is no transfer.
std::string UploadedFile(const Launch& launch);

class RetryStory : public TimelinePrinter {
 public:
  explicit RetryStory(std::unique_ptr<TimelinePrinter> printer);

  void Print(double seconds, const Happening& happening) override;
  void Observe(double seconds, const Crossing& crossing) override {
    printer_->Observe(seconds, crossing);
  }
  void Refresh(double seconds) override { printer_->Refresh(seconds); }
  void Finish(double seconds) override { printer_->Finish(seconds); }

 private:
  struct Waiting {
    std::string file;
    double since = 0;
    int attempts = 1;
  };
  using Position = std::deque<Waiting>::iterator;

  void Follow(double seconds, const std::string& line);
  void Queue(double seconds);
  void Try(double seconds, const std::string& file);
  void Leave(double seconds, const Position& message, RetryChange::What what, const char* why);
  Position Find(const std::string& file);
  void Tell(double seconds, RetryChange change);

  const std::unique_ptr<TimelinePrinter> printer_;
  std::deque<Waiting> queue_;  // oldest first
  std::string lastFile_;       // that the transfer program was given
  bool final_ = false;         // the attempt under way has failed for good
};

}  // namespace tvx::tool
