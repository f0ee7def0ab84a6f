// Passes over a retry queue of 10,000 messages. Only the pass is timed; transfers take no time.
//
//   before_next_retry       the round has not begun: nothing is sent
//   complete_round          every message has been tried: nothing is sent, the interval doubles
//   fails/PLACE             the message at this place of the queue is tried and stays
//   succeeds/PLACE          it is sent: its file is removed and it leaves the queue
//   *_cold                  the same after other data have pushed the queue out of the caches, as
//                           the transfers between two passes do
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "base/clock.h"
#include "mail/notify_file_stream.h"
#include "mail/notify_helper.h"
#include "mail/retry_queue.h"
#include "support/fake_host.h"
#include "support/run.h"

namespace tvx::bench {
namespace {

constexpr int kMessages = 10'000;
constexpr std::int32_t kTwoDays = 172'800;  // seconds
constexpr std::int32_t kCouldNotConnect = 7;
// Ticks: messages were last tried in this round, or in the one before.
constexpr std::uint32_t kRound = 1'000'000;
constexpr std::uint32_t kEarlier = kRound - 1;
constexpr std::uint32_t kNow = kRound + 1;

class IgnoredStatus : public IStatusReceiver {
 public:
  void ReportStatus(std::int32_t, ProfileStatus) override {}
};

struct Delivery {
  IgnoredStatus owner;
  ProcessChannel channel;
};

class TimelessHelper : private Delivery, public NotifyHelper {
 public:
  explicit TimelessHelper(std::int32_t exit)
      : NotifyHelper(owner, channel, &test::FakeHost::Entry), exit_(exit) {
    for (int i = 0; i < kMessages; ++i) queue.push_back(MakeMessage(i));
    untried = queue.begin();
    retryInterval = 60'000;
  }

  bool RunTransfer(const std::vector<std::string>&, const std::string&, std::int32_t& exitValue,
                   std::vector<std::string>&) override {
    exitValue = exit_;
    return true;
  }

  // As messages are in a queue that has been through some rounds.
  static PendingMessage MakeMessage(int number) {
    PendingMessage message;
    message.from = "nvr@example.com";
    message.recipients = {"guard@example.com", "office@example.com", "archive@example.com"};
    message.path = "./notify-mail-1000-1500000000-250-" + std::to_string(number);
    message.profileDescription = "Gate and car park";
    SmtpServer server;
    server.description = "Mail server";
    server.address = "mail.example.com";
    server.username = "nvr";
    server.password = "secret";
    message.servers = {server, server};
    message.firstAttempt = kEarlier;
    message.lastAttempt = kRound;
    return message;
  }

 private:
  const std::int32_t exit_;
};

enum class Caches { Warm, Cold };

void EmptyCaches() {
  static std::vector<unsigned char> other(64u << 20);
  for (std::size_t i = 0; i < other.size(); i += 64) ++other[i];
  benchmark::ClobberMemory();
}

void Time(benchmark::State& state, TimelessHelper& helper, NotifyFileStreamImpl& stream,
          Caches caches, bool tries) {
  if (caches == Caches::Cold) EmptyCaches();
  bool tried = false;
  TimeOnce(state, [&] { tried = RetryPass(helper, stream, kTwoDays); });
  if (tried != tries) state.SkipWithError("the pass did something else");
}

// A pass without a message to try.
void PassAlone(benchmark::State& state, std::uint32_t nextRetry, Caches caches) {
  TimelessHelper helper(kCouldNotConnect);
  NotifyFileStreamImpl stream(&test::FakeHost::Entry);
  for (auto _ : state) {
    helper.nextRetry = nextRetry;
    helper.retryInterval = 60'000;
    helper.untried = std::prev(helper.queue.end());  // where the passes of a round leave it
    Time(state, helper, stream, caches, false);
  }
}

void PassThatFails(benchmark::State& state, int place, Caches caches) {
  TimelessHelper helper(kCouldNotConnect);
  NotifyFileStreamImpl stream(&test::FakeHost::Entry);
  helper.nextRetry = kRound;
  const auto message = std::next(helper.queue.begin(), place);
  for (auto _ : state) {
    message->lastAttempt = kEarlier;
    helper.untried = message;  // where the passes before this one have left it
    Time(state, helper, stream, caches, true);
  }
}

void PassThatSucceeds(benchmark::State& state, int place, Caches caches) {
  TimelessHelper helper(0);
  NotifyFileStreamImpl stream(&test::FakeHost::Entry);
  helper.nextRetry = kRound;
  auto following = std::next(helper.queue.begin(), place + 1);
  int number = kMessages;
  for (auto _ : state) {
    const auto message = std::prev(following);
    message->lastAttempt = kEarlier;
    helper.untried = message;
    std::ofstream(message->path) << "message\n";
    Time(state, helper, stream, caches, true);
    following = std::next(helper.queue.insert(following, TimelessHelper::MakeMessage(++number)));
  }
}

void Register() {
  SetTickClock([] { return kNow; });
  for (const Caches caches : {Caches::Warm, Caches::Cold}) {
    const std::string suffix = caches == Caches::Cold ? "_cold" : "";
    const auto add = [&](const std::string& name, auto function, auto argument) {
      // Emptying the caches takes much longer than a pass, so the iterations are given.
      benchmark::RegisterBenchmark((name + suffix).c_str(), function, argument, caches)
          ->UseManualTime()
          ->Iterations(caches == Caches::Cold ? 5 : 500);
    };
    add("before_next_retry", PassAlone, kNow + 1);
    add("complete_round", PassAlone, kRound);
    for (const int place : {0, kMessages / 2, kMessages - 1}) {
      add("fails/" + std::to_string(place), PassThatFails, place);
      add("succeeds/" + std::to_string(place), PassThatSucceeds, place);
    }
  }
}

}  // namespace
}  // namespace tvx::bench

int main(int argc, char** argv) {
  tvx::bench::Register();
  return tvx::bench::RunCases(argc, argv);
}
