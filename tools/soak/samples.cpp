#include "soak/samples.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <limits>
#include <system_error>

#include "soak/load.h"

namespace tvx::soak {
namespace {

// A longer run is compared over whole rounds of its load, so that like is compared with like.
constexpr double kLongRun = 600;

// What memory and frames may grow by.
constexpr double kTolerance = 0.01;
// A shorter run has not had a round of its load before it is compared, nor its heap come to rest.
constexpr double kShortTolerance = 0.04;

std::FILE* OpenForWriting(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "we");
  if (file == nullptr) throw std::system_error(errno, std::generic_category(), path);
  return file;
}

Means MeansOf(const std::vector<Sample>& samples, double from, double to) {
  Means means;
  means.from = from;
  means.to = to;
  means.descriptors = means.threads = means.children = std::numeric_limits<int>::max();
  double count = 0;
  for (const Sample& sample : samples) {
    if (sample.seconds < from || sample.seconds >= to) continue;
    ++count;
    means.residentBytes += static_cast<double>(sample.process.residentBytes);
    means.otherBytes += static_cast<double>(sample.OtherBytes());
    means.framesHeld += static_cast<double>(sample.framesHeld);
    means.descriptors = std::min(means.descriptors, sample.process.descriptors);
    means.threads = std::min(means.threads, sample.process.threads);
    means.children = std::min(means.children, sample.process.children);
  }
  means.residentBytes /= count;
  means.otherBytes /= count;
  means.framesHeld /= count;
  return means;
}

Sample MostOf(const std::vector<Sample>& samples) {
  Sample most;
  const auto raise = [](auto& value, const auto& other) { value = std::max(value, other); };
  for (const Sample& sample : samples) {
    raise(most.process.residentBytes, sample.process.residentBytes);
    raise(most.process.allocatedBytes, sample.process.allocatedBytes);
    raise(most.process.descriptors, sample.process.descriptors);
    raise(most.process.threads, sample.process.threads);
    raise(most.process.children, sample.process.children);
    raise(most.framesHeld, sample.framesHeld);
    raise(most.spoolFiles, sample.spoolFiles);
    raise(most.mail.unprocessed, sample.mail.unprocessed);
    raise(most.mail.waiting, sample.mail.waiting);
  }
  return most;
}

}  // namespace

SampleFile::SampleFile(const std::string& path) : file_(OpenForWriting(path)) {
  std::fputs(
      "seconds,resident_kib,heap_kib,heap_besides_frames_kib,descriptors,threads,children,"
      "frames_held,spool_files,mail_server_up,events,accepted,throttled,mailed,mailed_late,"
      "discarded,unprocessed,waiting,attempts\n",
      file_.get());
}

void SampleFile::Write(const Sample& it) {
  std::fprintf(
      file_.get(),
      "%.1f,%" PRId64 ",%" PRId64 ",%" PRId64 ",%d,%d,%d,%" PRId64 ",%d,%d,%" PRIu64 ",%" PRIu64
      ",%" PRIu64 ",%" PRIu64 ",%" PRIu64 ",%" PRIu64 ",%" PRIu64 ",%" PRIu64 ",%" PRIu64 "\n",
      it.seconds, it.process.residentBytes / 1024, it.process.allocatedBytes / 1024,
      it.OtherBytes() / 1024, it.process.descriptors, it.process.threads, it.process.children,
      it.framesHeld, it.spoolFiles, it.mailServerUp ? 1 : 0, it.mail.events, it.mail.accepted,
      it.mail.throttled, it.mail.mailed, it.mail.mailedLate, it.mail.Discarded(),
      it.mail.unprocessed, it.mail.waiting, it.mail.attempts);
  std::fflush(file_.get());
}

double WarmUpSeconds(double seconds) {
  return std::min(300.0, seconds / 4);
}

Flatness JudgeFlatness(const std::vector<Sample>& samples, const Sample& quiet, double seconds) {
  const double warmUp = WarmUpSeconds(seconds);
  const bool isLong = seconds >= kLongRun;
  const double span = isLong ? kRound : (seconds - warmUp) / 3;
  const double tolerance = isLong ? kTolerance : kShortTolerance;
  Flatness flatness;
  flatness.warm = MeansOf(samples, warmUp, warmUp + span);
  flatness.end = MeansOf(samples, seconds - span, seconds);
  flatness.quiet = quiet;
  flatness.most = MostOf(samples);

  const auto limitGrowth = [&](const char* what, double growth) {
    // Also what is no number, for want of samples, is not flat.
    if (growth < tolerance) return;
    char text[96];
    std::snprintf(text, sizeof(text), "%s: %+.2f %% since the warm-up", what, growth * 100);
    flatness.faults.emplace_back(text);
  };
  limitGrowth("resident memory", flatness.ResidentGrowth());
  limitGrowth("the heap besides frames", flatness.OtherGrowth());
  limitGrowth("frames held", flatness.FramesGrowth());

  const auto limitCount = [&](const char* what, int before, int after) {
    if (after <= before) return;
    flatness.faults.push_back(std::string(what) + ": " + std::to_string(after) +
                              " in the end, once " + std::to_string(before));
  };
  limitCount("descriptors", flatness.warm.descriptors, quiet.process.descriptors);
  limitCount("threads", flatness.warm.threads, flatness.end.threads);
  limitCount("child processes", flatness.warm.children, quiet.process.children);
  if (quiet.spoolFiles != 0) {
    flatness.faults.push_back("files in data/ when all is quiet: " +
                              std::to_string(quiet.spoolFiles));
  }
  return flatness;
}

}  // namespace tvx::soak
