#include "service/worker.h"

#include <boost/thread/exceptions.hpp>
#include <exception>
#include <string>

#include "log/host_log.h"
#include "mail/notify_file_stream.h"
#include "mail/retry_queue.h"
#include "mail/spool.h"
#include "service/notification_processing.h"

namespace tvx {
namespace {

// While messages wait for their retry, the queue is looked at this often.
constexpr boost::chrono::milliseconds kRetrySlice{100};

class Worker {
 public:
  Worker(IStatusReceiver& owner, ProcessChannel& channel, HostServiceEntry host)
      : stream_(host), helper_(owner, channel, host) {}

  // Waits only as long as no message is due for its retry.
  WorkQueue::Item Next(WorkQueue& queue) {
    if (helper_.queue.empty()) return queue.Take();
    return queue.TakeWithin(retried_ ? boost::chrono::milliseconds(0) : kRetrySlice);
  }

  void ClearRetries() { ClearRetryQueue(helper_, stream_); }

  void Process(NotifyWorkItem& item, const NotifyConfig& snapshot) {
    const std::string& profile = item.profile->description;
    ProfileStatus status = ProfileStatus::Failed;
    Guarded(profile, [&] { status = ProcessNotification(item, snapshot, helper_, stream_); });
    // A report that fails is tried once more, as what it tells of has happened.
    const auto report = [&] { helper_.ReportStatus(item.profile->ID, status); };
    if (!Guarded(profile, report)) Guarded(profile, report);
  }

  void Retry(const NotifyConfig& snapshot) {
    retried_ = false;
    Guarded("(retry)", [&] { retried_ = RetryPass(helper_, stream_, snapshot.MaxRetrySeconds); });
  }

 private:
  // Runs a step, which one bad notification must not make the worker's last. False when it threw.
  template <typename Step>
  bool Guarded(const std::string& profile, Step step) {
    try {
      step();
      return true;
    } catch (const boost::thread_exception&) {
      throw;  // locks that fail cannot be trusted again
    } catch (const boost::condition_error&) {
      throw;
    } catch (const std::exception& error) {
      HostLog(kModuleId, helper_.Host(), LogLevel::Error,
              "Failed to process notification of profile %s: %s", profile.c_str(), error.what());
      return false;
    }
  }

  NotifyFileStreamImpl stream_;
  NotifyHelper helper_;
  bool retried_ = false;  // the last pass tried a message, so another may be due at once
};

}  // namespace

void RunWorkerLoop(WorkQueue& queue, IStatusReceiver& owner, ProcessChannel& channel,
                   HostServiceEntry host,
                   const std::function<WorkerConfig(const NotifyWorkItem*)>& beginTurn) {
  ClearSpool(host);
  Worker worker(owner, channel, host);
  for (;;) {
    const WorkQueue::Item item = worker.Next(queue);
    const WorkerConfig config = beginTurn(item.get());
    if (config.changed) worker.ClearRetries();
    if (item == nullptr) {
      worker.Retry(*config.snapshot);
    } else if (item->kind == NotifyWorkItem::Kind::Stop) {
      return;
    } else {
      worker.Process(*item, *config.snapshot);
    }
  }
}

}  // namespace tvx
