// The plug-in with nothing to do, on the two threads that the host lends it. Counts, not times.
//
//   idle     nothing is queued: worker_wakeups and watchdog_wakeups are voluntary context switches
//            in 22 seconds, watchdog_events what the watchdog sent meanwhile
//   waiting  10,000 messages wait for their retry: worker_cpu_percent is the worker's processor
//            time in percent of the time that passed (5 seconds)
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <deque>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

#include "support/documents.h"
#include "support/plugin.h"
#include "support/run.h"

namespace tvx::bench {
namespace {

using std::chrono::seconds;

// A thread lent to the plug-in.
class LentThread {
 public:
  template <typename Loop>
  explicit LentThread(Loop loop)
      : thread_([this, loop] {
          id_ = static_cast<int>(syscall(SYS_gettid));
          loop();
        }) {
    while (id_ == 0) std::this_thread::yield();
  }
  ~LentThread() { thread_.join(); }

  long VoluntarySwitches() const {
    std::ifstream status("/proc/self/task/" + std::to_string(id_) + "/status");
    for (std::string word; status >> word;) {
      long count = 0;
      if (word == "voluntary_ctxt_switches:" && status >> count) return count;
    }
    return -1;
  }

  double ProcessorSeconds() {
    clockid_t clock{};
    timespec time{};
    pthread_getcpuclockid(thread_.native_handle(), &clock);
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
  }

 private:
  std::atomic<int> id_{0};
  std::thread thread_;
};

// Reports every launched program as one that could not connect. On a thread of its own, as the
// plug-in waits for the report inside its request.
class UnreachableServer {
 public:
  explicit UnreachableServer(Plugin& plugin)
      : host_(plugin.host), thread_([this, &plugin] { Answer(plugin.driver); }) {
    constexpr std::uint32_t kLaunch = 6;  // kind of a chunk
    host_.OnChunk([this](const test::SentChunk& chunk) {
      if (chunk.kind == kLaunch) Add(chunk.request);
    });
  }
  ~UnreachableServer() {
    host_.OnChunk({});
    Add(kEnd);
    thread_.join();
  }

  int Answered() const { return answered_; }

 private:
  static constexpr std::uint32_t kEnd = 0;

  void Add(std::uint32_t request) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      requests_.push_back(request);
    }
    added_.notify_one();
  }

  std::uint32_t Take() {
    std::unique_lock<std::mutex> lock(mutex_);
    added_.wait(lock, [this] { return !requests_.empty(); });
    const std::uint32_t request = requests_.front();
    requests_.pop_front();
    return request;
  }

  void Answer(test::PluginDriver& plugin) {
    constexpr std::uint32_t kRunning = 3;
    constexpr std::uint32_t kFinished = 5;
    constexpr std::uint32_t kCouldNotConnect = 7 << 8;  // as a raw wait status
    for (std::uint32_t request = Take(); request != kEnd; request = Take()) {
      plugin.Report(test::MakeReport(request, kRunning, 0));
      plugin.Report(test::MakeReport(request, kFinished, kCouldNotConnect));
      ++answered_;
    }
  }

  test::FakeHost& host_;
  std::mutex mutex_;
  std::condition_variable added_;
  std::deque<std::uint32_t> requests_;
  std::atomic<int> answered_{0};
  std::thread thread_;
};

void RunWorker(Plugin& plugin) {
  plugin.driver.Control(ControlCode::RunWorker);
}

void Idle(benchmark::State& state) {
  Plugin plugin;
  plugin.host.Answer(HostCommand::ChannelMessage, 1, 0);  // launches are refused
  plugin.driver.Open();
  plugin.driver.Update(ProfilesDocument(1));
  LentThread worker([&] { RunWorker(plugin); });
  LentThread watchdog([&] {
    ReadRequest request{};
    request.runWatchdog = 1;
    ReadResult result{};
    plugin.driver.Functions().Read(&request, &result);
  });
  std::this_thread::sleep_for(seconds(1));
  for (auto _ : state) {
    const long workerBefore = worker.VoluntarySwitches();
    const long watchdogBefore = watchdog.VoluntarySwitches();
    const int eventsBefore = plugin.host.WatchdogEvents();
    std::this_thread::sleep_for(seconds(22));
    state.counters["worker_wakeups"] =
        static_cast<double>(worker.VoluntarySwitches() - workerBefore);
    state.counters["watchdog_wakeups"] =
        static_cast<double>(watchdog.VoluntarySwitches() - watchdogBefore);
    state.counters["watchdog_events"] = plugin.host.WatchdogEvents() - eventsBefore;
  }
  plugin.driver.Close();
}

void Waiting(benchmark::State& state) {
  constexpr int kMessages = 10'000;
  Plugin plugin;
  UnreachableServer server(plugin);
  plugin.driver.Update(
      ProfilesDocument(1, "MaxRetryQueue='" + std::to_string(kMessages) + "'", "", test::kServer));
  LentThread worker([&] { RunWorker(plugin); });
  const auto begin = std::chrono::steady_clock::now();
  const std::string event = EventDocumentFor(kFirstProfile);
  for (int i = 0; i < kMessages; ++i) plugin.driver.Event(event);
  while (server.Answered() < kMessages) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  for (auto _ : state) {
    std::this_thread::sleep_for(seconds(1));
    const double before = worker.ProcessorSeconds();
    std::this_thread::sleep_for(seconds(5));
    state.counters["worker_cpu_percent"] = (worker.ProcessorSeconds() - before) / 5 * 100;
    // The first round begins a minute after the first failure; it is not what is measured.
    if (std::chrono::steady_clock::now() - begin > seconds(55)) {
      state.SkipWithError("queueing took so long that a round may have begun");
    }
  }
  plugin.driver.Close();
}

}  // namespace
}  // namespace tvx::bench

int main(int argc, char** argv) {
  // Last, as it is the one that closes the channel: launches would fail from then on.
  benchmark::RegisterBenchmark("waiting", tvx::bench::Waiting)->Iterations(1)->Repetitions(1);
  benchmark::RegisterBenchmark("idle", tvx::bench::Idle)->Iterations(1)->Repetitions(1);
  return tvx::bench::RunCases(argc, argv);
}
