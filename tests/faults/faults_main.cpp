// Every single fault of memory and disk on the roads of a notification.
//
//   faults ROAD              every fault on the road
//   faults ROAD KIND NUMBER  one fault (KIND 0 to 4: allocation, write, open, rename, removal)
#include "faults/road.h"
#include "support/fake_host.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace tvx::faults {
namespace {

// Most of a road's time is spent waiting.
constexpr std::size_t kProcesses = 8;

// A run that takes so many seconds hangs.
constexpr unsigned kLongest = 60;

// The end of the road is behind so many runs in a row that no fault struck.
constexpr unsigned kCleanRuns = 3;

// What is broken without a fault would be without end.
constexpr unsigned kTooMany = 2000;

enum Status { kDelivered = 0, kBroken = 1, kClean = 2, kTold = 3 };

const char* Plural(Kind kind) {
  switch (kind) {
    case Kind::Allocation:
      return "allocations";
    case Kind::Write:
      return "writes";
    case Kind::Open:
      return "opens";
    case Kind::Rename:
      return "renames";
    case Kind::Remove:
      return "removals";
  }
  return "";
}

Status RunOnce(Road road, Kind kind, unsigned n) {
  const RoadOutcome outcome = TakeRoad(road, kind, n);
  for (const std::string& finding : outcome.findings) {
    std::fprintf(stderr, "%s, number %u: %s\n", Plural(kind), n, finding.c_str());
  }
  if (!outcome.findings.empty()) return kBroken;
  if (!outcome.hasStruck) return kClean;
  return outcome.isDelivered ? kDelivered : kTold;
}

struct Counts {
  unsigned struck = 0;
  unsigned delivered = 0;  // in spite of the fault
  unsigned broken = 0;
};

// Each run is a process of its own, several at a time, so that one that dies or hangs is a finding
// among others.
class KindSweep {
 public:
  KindSweep(Road road, Kind kind) : road_(road), kind_(kind) {}

  void Run() {
    for (unsigned n = 1; clean_ < kCleanRuns && n < kTooMany; ++n) {
      Fork(n);
      if (running_.size() == kProcesses) Await();
    }
    while (!running_.empty()) Await();
  }

  const Counts& Result() const { return counts_; }

 private:
  void Fork(unsigned n) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child < 0) {
      std::perror("fork");
      std::exit(2);
    }
    if (child == 0) {
      ::alarm(kLongest);
      ::_exit(RunOnce(road_, kind_, n));
    }
    running_.emplace(child, n);
  }

  void Await() {
    int status = 0;
    const auto ended = running_.find(::wait(&status));
    if (ended == running_.end()) return;
    if (WIFSIGNALED(status)) {
      std::fprintf(stderr, "%s, number %u: ended by signal %d\n", Plural(kind_), ended->second,
                   WTERMSIG(status));
    }
    running_.erase(ended);
    const int outcome = WIFEXITED(status) ? WEXITSTATUS(status) : kBroken;
    clean_ = outcome == kClean ? clean_ + 1 : 0;
    if (outcome == kClean) return;
    ++counts_.struck;
    if (outcome == kDelivered) {
      ++counts_.delivered;
    } else if (outcome != kTold) {
      ++counts_.broken;
    }
  }

  const Road road_;
  const Kind kind_;
  std::map<pid_t, unsigned> running_;
  Counts counts_;
  unsigned clean_ = 0;
};

// Prints every finding on standard error and, at the end, the count of faults on standard output.
bool SweepRoad(Road road, const std::string& name) {
  std::string counts;
  Counts all;
  for (const Kind kind : kKinds) {
    KindSweep sweep(road, kind);
    sweep.Run();
    const Counts& one = sweep.Result();
    all.struck += one.struck;
    all.delivered += one.delivered;
    all.broken += one.broken;
    counts += (counts.empty() ? "" : ", ") + std::to_string(one.struck) + " " + Plural(kind);
  }
  const std::string result =
      all.broken == 0 ? "all survived" : std::to_string(all.broken) + " not survived";
  std::printf("faults: %s: %s: %s", name.c_str(), counts.c_str(), result.c_str());
  if (road != Road::End && all.broken == 0) {
    std::printf(" (alarm delivered in %u, its loss told in %u)", all.delivered,
                all.struck - all.delivered);
  }
  std::printf("\n");
  return all.broken == 0;
}

// One fault, with the place where it strikes on standard error.
bool TryOne(Road road, Kind kind, unsigned n) {
  TraceStrike();
  return RunOnce(road, kind, n) != kBroken;
}

}  // namespace
}  // namespace tvx::faults

int main(int argc, char** argv) {
  using tvx::faults::Road;
  tvx::test::Crossing::note = tvx::faults::NoteSide;
  const std::map<std::string, Road> roads = {
      {"plain", Road::Plain}, {"video", Road::Video}, {"retry", Road::Retry}, {"end", Road::End}};
  const auto road = roads.find(argc > 1 ? argv[1] : "");
  if (road == roads.end() || (argc != 2 && argc != 4)) {
    std::fputs("usage: faults plain|video|retry|end [KIND NUMBER]\n", stderr);
    return 2;
  }
  if (argc == 2) return tvx::faults::SweepRoad(road->second, road->first) ? 0 : 1;
  const auto kind = static_cast<tvx::faults::Kind>(std::strtol(argv[2], nullptr, 10));
  const auto n = static_cast<unsigned>(std::strtol(argv[3], nullptr, 10));
  return tvx::faults::TryOne(road->second, kind, n) ? 0 : 1;
}
