// The worker's delivery state: the retry queue, and the way to the transfer program and to the
// status reports.
//
// Owns:    the queued messages; each stands for one file in the spool directory.
// Threads: the worker's only, so nothing here has a lock.
// Not here: what the queue does (retry_queue.h), what a transfer means (transfer.h).
#pragma once

#include <boost/chrono/duration.hpp>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "config/module_documents.h"
#include "host/host_records.h"
#include "host/process_channel.h"
#include "mail/pending_message.h"

namespace tvx {

// Takes the reports of what became of a profile's notification. Implemented by the service.
class IStatusReceiver {
 public:
  virtual ~IStatusReceiver() = default;
  virtual void ReportStatus(std::int32_t profileId, ProfileStatus status) = 0;
};

class NotifyHelper {
 public:
  // All three outlive the helper.
  NotifyHelper(IStatusReceiver& owner, ProcessChannel& channel, HostServiceEntry host)
      : owner_(owner), channel_(channel), host_(host) {}
  virtual ~NotifyHelper() = default;
  NotifyHelper(const NotifyHelper&) = delete;
  NotifyHelper& operator=(const NotifyHelper&) = delete;

  virtual void ReportStatus(std::int32_t profileId, ProfileStatus status);

  // Runs a program with this standard input and waits for its end. False when it could not be
  // launched, when the host refused its input, or when the plug-in was stopped before its end (see
  // WasAbandoned). The exit value is the raw wait status with its two low bytes exchanged: a normal
  // exit gives its code, an end by signal 256 times the signal. lines gets what the program wrote to
  // its standard output, at most kMaxTransferOutput bytes of it, each line cut to what a log line
  // takes. A program that runs for long is told of once, and goes on.
  virtual bool RunTransfer(const std::vector<std::string>& arguments, const std::string& input,
                           std::int32_t& exitValue, std::vector<std::string>& lines);

  // The plug-in was stopped while a program ran: nobody knows what became of it.
  bool WasAbandoned() const { return wasAbandoned_; }

  // Close was called: no program will run any more, and nothing else is waited for.
  bool IsStopped() const { return channel_.IsClosed(); }

  HostServiceEntry Host() const { return host_; }

  // The retry queue's clock: milliseconds that never wrap, as messages may wait for months. It is
  // the tick clock, which must be read at least once in 49 days while messages wait.
  std::int64_t Now();

  // Messages ever queued for retry. Part of message file names, which makes them unique.
  std::uint32_t messageCounter = 0;
  std::int64_t retryInterval = 0;   // milliseconds: the current back-off
  std::int64_t nextRetry = 0;       // when, by Now, the next round may start
  std::list<PendingMessage> queue;  // oldest at the front; a list, as any of them may leave
  // All before it have been tried in this round, so that a pass need not walk a long queue.
  std::list<PendingMessage>::iterator untried = queue.begin();
  // Servers that could not be reached, and when, by Now, that was found out last.
  std::map<std::string, std::int64_t> unreachable;
  boost::chrono::milliseconds patience{600'000};  // before a transfer is told of

 private:
  IStatusReceiver& owner_;
  ProcessChannel& channel_;
  const HostServiceEntry host_;
  bool wasAbandoned_ = false;
  std::uint32_t tick_ = 0;  // at the latest look at the clock
  std::int64_t now_ = 0;
};

}  // namespace tvx
