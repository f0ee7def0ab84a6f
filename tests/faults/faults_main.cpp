// Every single fault of memory and disk on the roads of a notification.
//
//   faults ROAD              every fault on the road
//   faults ROAD KIND NUMBER  one fault (KIND 0 to 4: allocation, write, open, rename, removal)
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "faults/road.h"
#include "support/fake_host.h"

namespace tvx::faults {
namespace {

constexpr const char* kNames[] = {"allocations", "writes", "opens", "renames", "removals"};

constexpr std::size_t kProcesses = 8;  // most of a road's time is spent waiting
constexpr unsigned kLongest = 120;     // a run that takes so many seconds hangs
constexpr unsigned kCleanRuns = 3;     // the end of the road is behind so many without a strike
constexpr unsigned kTooMany = 2000;    // what is broken without a fault would be without end

enum Status { kDelivered, kBroken, kClean, kTold };

Status RunOnce(Road road, Kind kind, unsigned n) {
  const RoadOutcome outcome = TakeRoad(road, kind, n);
  for (const std::string& finding : outcome.findings) {
    std::fprintf(stderr, "%s, number %u: %s\n", kNames[static_cast<int>(kind)], n, finding.c_str());
  }
  if (!outcome.findings.empty()) return kBroken;
  if (!outcome.hasStruck) return kClean;
  return outcome.isDelivered ? kDelivered : kTold;
}

// How many runs ended so.
using Counts = std::map<int, unsigned>;

// Each run is a process of its own, several at a time, so that one that dies or hangs is a finding
// among others.
Counts SweepKind(Road road, Kind kind) {
  std::map<pid_t, unsigned> running;
  Counts counts;
  unsigned clean = 0;
  const auto await = [&] {
    int status = 0;
    const auto ended = running.find(::wait(&status));
    if (ended == running.end()) return;
    if (WIFSIGNALED(status)) {
      std::fprintf(stderr, "%s, number %u: ended by signal %d\n", kNames[static_cast<int>(kind)],
                   ended->second, WTERMSIG(status));
    }
    running.erase(ended);
    const int outcome = WIFEXITED(status) ? WEXITSTATUS(status) : kBroken;
    clean = outcome == kClean ? clean + 1 : 0;
    ++counts[outcome];
  };
  for (unsigned n = 1; clean < kCleanRuns && n < kTooMany; ++n) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child < 0) {
      std::perror("fork");
      std::exit(2);
    }
    if (child == 0) {
      ::alarm(kLongest);
      ::_exit(RunOnce(road, kind, n));
    }
    running.emplace(child, n);
    if (running.size() == kProcesses) await();
  }
  while (!running.empty()) await();
  return counts;
}

// Prints every finding on standard error and, at the end, the count of faults on standard output.
bool SweepRoad(Road road, const std::string& name) {
  std::printf("faults: %s:", name.c_str());
  Counts all;
  for (const Kind kind : kKinds) {
    Counts counts = SweepKind(road, kind);
    counts.erase(kClean);
    unsigned struck = 0;
    for (const auto& [outcome, count] : counts) struck += count, all[outcome] += count;
    std::printf(" %u %s,", struck, kNames[static_cast<int>(kind)]);
  }
  std::printf(" %u not survived (alarm delivered in %u, its loss told in %u)\n", all[kBroken],
              all[kDelivered], all[kTold]);
  return all[kBroken] == 0;
}

}  // namespace
}  // namespace tvx::faults

int main(int argc, char** argv) {
  using namespace tvx::faults;
  tvx::test::Crossing::note = NoteSide;
  const std::map<std::string, Road> roads = {
      {"plain", Road::Plain}, {"video", Road::Video}, {"retry", Road::Retry}, {"end", Road::End}};
  const auto road = roads.find(argc > 1 ? argv[1] : "");
  if (road == roads.end() || (argc != 2 && argc != 4)) {
    std::fputs("usage: faults plain|video|retry|end [KIND NUMBER]\n", stderr);
    return 2;
  }
  if (argc == 2) return SweepRoad(road->second, road->first) ? 0 : 1;
  TraceStrike();
  const auto kind = static_cast<Kind>(std::atoi(argv[2]));
  return RunOnce(road->second, kind, static_cast<unsigned>(std::atoi(argv[3]))) != kBroken ? 0 : 1;
}
