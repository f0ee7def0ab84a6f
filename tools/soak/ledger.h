// The books of the mail: every notification that the plug-in accepts is accounted for exactly once.
//
// The ledger follows each one by what the plug-in says and does: the line of its acceptance, the
// runs of curl for its message file, the lines and reports of its fate. It keeps the retry queue as
// the lines tell it, so that "the oldest message" has a name. Whatever does not fit is a fault:
// an event without its notification, a fate without a message, two fates, a report too many.
//
// Threads: any. Locks: its own; nothing is called with it.
// Memory:  bounded by the messages under way: what is concluded goes to a file.
#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "simulated_host/host_event.h"
#include "soak/message_key.h"

namespace tvx::soak {

// One profile that an event document names.
struct Mention {
  std::int32_t profile = 0;
  bool known = true;          // the configuration has it
  bool due = true;            // its trigger mode asks for this event
  std::int32_t throttle = 0;  // seconds between two notifications, 0: none
};

struct MailCounts {
  std::uint64_t events = 0;    // documents
  std::uint64_t mentions = 0;  // of profiles in them; each is one of the next four
  std::uint64_t unknown = 0;
  std::uint64_t notDue = 0;
  std::uint64_t throttled = 0;
  std::uint64_t accepted = 0;

  // Of those accepted, each is one of these in the end.
  std::uint64_t mailed = 0;      // at the first attempt
  std::uint64_t mailedLate = 0;  // by a retry
  std::uint64_t refused = 0;     // given up at the first attempt
  std::uint64_t tooOld = 0;      // given up at a retry
  std::uint64_t pushedOut = 0;   // the queue was full
  std::uint64_t cleared = 0;     // the configuration was changed
  // Under way.
  std::uint64_t unprocessed = 0;  // waiting for video, in the work queue, or being sent
  std::uint64_t waiting = 0;      // in the retry queue

  std::uint64_t queued = 0;    // accepted ones that came into the retry queue
  std::uint64_t attempts = 0;  // runs of curl
  std::uint64_t failedAttempts = 0;
  std::uint64_t retries = 0;  // attempts from the retry queue
  std::uint64_t clips = 0;    // attachments made
  std::uint64_t reportsDelivered = 0;
  std::uint64_t reportsFailed = 0;

  std::uint64_t Discarded() const { return refused + tooOld + pushedOut + cleared; }
};

class Ledger {
 public:
  // fates gets a line for each concluded message: its subject, its fate, and how many attempts may
  // have reached the server without the plug-in's knowing. Throws std::system_error when it cannot
  // be written.
  explicit Ledger(const std::string& fates);

  // Around the Write of an event document, by the one thread that sends them. Seconds of any steady
  // clock.
  void EventBegins(std::int32_t event, const std::vector<Mention>& mentions, double seconds)
      EXCLUDES(mutex_);
  void EventEnds(double seconds) EXCLUDES(mutex_);

  // What the timeline of the host tells. One that comes on the thread of an event comes between
  // EventBegins and EventEnds.
  void Take(const tool::LogLine& line) EXCLUDES(mutex_);
  void Take(const tool::Launch& launch) EXCLUDES(mutex_);
  void Take(const tool::ProgramEnd& end) EXCLUDES(mutex_);
  void Take(const tool::ProfileReport& status) EXCLUDES(mutex_);

  MailCounts Counts() const EXCLUDES(mutex_);

  // The end of the run: what does not balance, in words. Closes the file of the fates.
  std::vector<std::string> Balance() EXCLUDES(mutex_);

 private:
  struct Message {
    bool queued = false;
    int uncertainAttempts = 0;
  };
  struct Throttling {
    double begin;  // of the Write that was accepted last
    double end;
  };
  struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  using Messages = std::map<MessageKey, Message>;

  void Accept(std::int32_t profile) REQUIRES(mutex_);
  void Settle(const Mention& mention, double seconds) REQUIRES(mutex_);
  void CheckThrottle(const Mention& mention, bool accepted, double seconds) REQUIRES(mutex_);
  bool TakeWorkerLine(const std::string& text) REQUIRES(mutex_);
  void AttemptLogged(const std::string& text) REQUIRES(mutex_);
  void Queue() REQUIRES(mutex_);
  void LeaveQueue(const std::string& line, const char* fate, std::uint64_t& count) REQUIRES(mutex_);
  void PushOut(const std::string& line) REQUIRES(mutex_);
  void Clear(const std::string& text) REQUIRES(mutex_);
  void Conclude(const MessageKey& key, const char* fate, std::uint64_t& count) REQUIRES(mutex_);
  Message* Current(const std::string& line) REQUIRES(mutex_);
  void ExpectEqual(const char* what, std::uint64_t left, std::uint64_t right) REQUIRES(mutex_);
  void AddFault(std::string text) REQUIRES(mutex_);

  mutable Mutex mutex_;
  const std::unique_ptr<std::FILE, FileCloser> fates_;
  MailCounts counts_ GUARDED_BY(mutex_);
  Messages open_ GUARDED_BY(mutex_);
  std::deque<MessageKey> queue_ GUARDED_BY(mutex_);  // as the plug-in's, oldest first

  // The event whose Write is under way.
  std::int32_t event_ GUARDED_BY(mutex_) = 0;
  double eventBegin_ GUARDED_BY(mutex_) = 0;
  std::vector<Mention> mentions_ GUARDED_BY(mutex_);
  std::set<std::int32_t> accepted_ GUARDED_BY(mutex_);
  std::map<std::int32_t, Throttling> throttling_ GUARDED_BY(mutex_);

  // The message that the worker is sending: it has one at a time.
  std::optional<MessageKey> current_ GUARDED_BY(mutex_);
  std::uint32_t request_ GUARDED_BY(mutex_) = 0;
  std::optional<int> exitValue_ GUARDED_BY(mutex_);  // of its curl, as the plug-in logs it

  std::vector<std::string> faults_ GUARDED_BY(mutex_);
  std::uint64_t faultCount_ GUARDED_BY(mutex_) = 0;
};

}  // namespace tvx::soak
