// Saves the configuration to its file, publishes it to the host and reports what has changed.
//
// Threads: any; one at a time is at it, whose turn is made longer by what comes meanwhile.
// Locks:   its own mutex, for moments; none while the host is called, the file is written or the
//          newest configuration is asked for.
// Errors:  a file that cannot be written is logged. Only memory exhaustion throws; the next turn
//          makes up for one that was lost.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "config/notify_config.h"
#include "host/host_records.h"

namespace tvx {

class ConfigPublisher {
 public:
  using Config = std::shared_ptr<const NotifyConfig>;
  // For each change the profiles that it affects. A list, as its nodes change hands without an
  // allocation that could fail.
  using Changes = std::list<std::vector<std::int32_t>>;

  // newest tells the configuration as it is now.
  ConfigPublisher(HostServiceEntry host, std::function<Config()> newest)
      : host_(host), newest_(std::move(newest)) {}

  // What a save would do to the file that the start has found.
  enum class File {
    Unread,    // Replace what nobody knows. As long as the configuration is the empty one, it is
               // neither saved nor published.
    KeptOnce,  // Replace a rejected file that could not be kept aside: the first save is left out.
    Replaceable,  // No harm.
  };
  void SetFile(File file) EXCLUDES(mutex_);

  // Has the newest configuration go out, and a status behind it for each of these changes, which it
  // contains. If another thread is at it, that one does it once more when done: the newest
  // configuration goes out last.
  void Publish(Changes changes = {}) EXCLUDES(mutex_);

 private:
  bool TakeTurn(Changes& changes) EXCLUDES(mutex_);
  void SaveAndSend(const NotifyConfig& config, Changes& changes) EXCLUDES(mutex_);

  const HostServiceEntry host_;
  const std::function<Config()> newest_;

  Mutex mutex_;
  bool isPublishing_ GUARDED_BY(mutex_) = false;
  bool isDue_ GUARDED_BY(mutex_) = false;
  Changes unreported_ GUARDED_BY(mutex_);
  File file_ GUARDED_BY(mutex_) = File::Unread;
};

}  // namespace tvx
