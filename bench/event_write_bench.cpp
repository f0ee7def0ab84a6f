// An event document through the exported Write, which the host waits for, beside the bare parse of
// the same text.
//
//   parse/bare          TinyXML as it comes: parse and destroy
//   parse/without_rows  the same without counting rows and columns, which the plug-in switches off
//   throttled/N         N profiles; the event's profile has just notified: nothing is queued
//   due/N               N profiles; every event becomes a notification: item, log line, queue.
//                       The worker does not run, so the queue only grows: the dearest case
#include <malloc.h>
#include <tinyxml.h>

#include <string>

#include "support/plugin.h"
#include "support/run.h"

namespace tvx::bench {
namespace {

constexpr int kProfileCounts[] = {1, 10, 100, 1000};
constexpr std::int32_t kOneDay = 86400;
// Bounds the queue; two thousand notifications are more than ever wait.
constexpr int kQueued = 2000;

void Parse(benchmark::State& state, bool countRows) {
  const std::string text = EventDocumentFor(kFirstProfile);
  for (auto _ : state) {
    TiXmlDocument document;
    if (!countRows) document.SetTabSize(0);
    document.Parse(text.c_str());
    benchmark::DoNotOptimize(document.RootElement());
  }
}

void WriteEvents(benchmark::State& state, int profiles, std::int32_t throttleSeconds) {
  Plugin plugin;
  plugin.driver.Update(
      ProfilesDocument(profiles, "", "ThrottleSeconds='" + std::to_string(throttleSeconds) + "'"));
  const std::string text = EventDocumentFor(kFirstProfile + profiles / 2);
  plugin.driver.Event(text);  // the one that the throttle lets through

  WriteRequest request = EventRequest(text);
  WriteResult result{};
  for (auto _ : state) plugin.Write(request, result);
}

void Register() {
  benchmark::RegisterBenchmark("parse/bare", Parse, true);
  benchmark::RegisterBenchmark("parse/without_rows", Parse, false);
  for (const int profiles : kProfileCounts) {
    const std::string count = std::to_string(profiles);
    benchmark::RegisterBenchmark(("throttled/" + count).c_str(), WriteEvents, profiles, kOneDay);
    benchmark::RegisterBenchmark(("due/" + count).c_str(), WriteEvents, profiles, 0)
        ->Iterations(kQueued);
  }
}

}  // namespace
}  // namespace tvx::bench

int main(int argc, char** argv) {
  // A host that has run for a while has its memory; it need not be fetched from the system anew.
  mallopt(M_TRIM_THRESHOLD, 64 << 20);
  tvx::bench::Register();
  return tvx::bench::RunCases(argc, argv);
}
