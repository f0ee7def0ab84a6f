// How a run stands, as far as it can be seen at the border between host and plug-in.
//
// What happens to a notification between its event and its status is the plug-in's own: one that
// waits for its video, one that is ready and one that is being composed look the same from here.
//
// Threads: a plain value, its owner's. Time: seconds of the plug-in, as the timeline has it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "simulated_host/crossing.h"
#include "simulated_host/happening.h"

namespace tvx::tool {

struct StreamStatus {
  FeedStart feed;
  double begin = 0;  // of the feed
  bool feeding = false;
  std::uint64_t offered = 0;
  std::uint64_t taken = 0;
  std::uint64_t returned = 0;

  // Frames that the plug-in keeps. One may come back before its Write has said that it was taken.
  std::uint64_t Held() const { return returned < taken ? taken - returned : 0; }
};

class RunStatus {
 public:
  void Follow(double seconds, const Happening& happening);
  void Follow(const Crossing& crossing);

  const std::map<std::uint32_t, StreamStatus>& Streams() const { return streams_; }
  std::uint64_t Held() const;
  // Notifications that events asked for, and those of them without a report. Those that are not due
  // never get one.
  int Asked() const { return asked_; }
  std::size_t NotReported() const { return notReported_.size(); }
  // Reports of either kind; a message may be reported failed first and delivered later.
  int Delivered() const { return delivered_; }
  int Failed() const { return failed_; }
  // Messages in the plug-in's retry queue, and those of them that a transfer is at.
  std::size_t Queued() const { return queue_.size(); }
  std::size_t Retrying() const;
  // Programs that run for the plug-in, and those of them that send a message.
  std::size_t Programs() const { return programs_.size(); }
  std::size_t Transfers() const;
  // Nothing when the host runs none.
  const std::optional<MailServerChange::What>& MailServer() const { return mailServer_; }
  int Faults() const { return faults_; }

 private:
  void Take(double seconds, const FeedStart& feed);
  void Take(const ProfileStatus& status);
  void Take(const RetryChange& change);

  std::map<std::uint32_t, StreamStatus> streams_;
  int asked_ = 0;
  std::multiset<std::int32_t> notReported_;  // profiles
  int delivered_ = 0;
  int failed_ = 0;
  std::set<std::string> queue_;                    // files
  std::map<std::uint32_t, std::string> programs_;  // the file that each sends, or nothing
  std::optional<MailServerChange::What> mailServer_;
  int faults_ = 0;
};

// How far the files are that the cameras show. Rates are of the world's time.
struct FeedProgress {
  int files = 0;  // being fed
  std::uint64_t fed = 0;
  std::uint64_t expected = 0;  // frames in all; 0: not known
  double rate = 0;             // frames a second
  double secondsLeft = 0;      // of the longest; only where expected is known
};
FeedProgress ProgressOfFiles(const RunStatus& status, double seconds, double speed);

// It in one line, with a bar where the end is known.
std::string Describe(const FeedProgress& progress);

}  // namespace tvx::tool
