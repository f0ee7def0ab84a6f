// The state of a run every second, in a file and in short: is it flat?
//
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "soak/ledger.h"
#include "soak/process_figures.h"

namespace tvx::soak {

struct Sample {
  double seconds = 0;  // of the run
  ProcessFigures process;
  std::int64_t framesHeld = 0;
  std::int64_t frameBytesHeld = 0;
  int spoolFiles = 0;  // in data/
  bool mailServerUp = true;
  MailCounts mail;

  // What the heap holds besides the frames that the plug-in has: where a leak shows first.
  std::int64_t OtherBytes() const { return process.allocatedBytes - frameBytesHeld; }
};

class SampleFile {
 public:
  // Throws std::system_error when it cannot be written.
  explicit SampleFile(const std::string& path);
  // A line of comma-separated values, seen at once by who reads the file.
  void Write(const Sample& sample);

 private:
  struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  const std::unique_ptr<std::FILE, FileCloser> file_;
};

// Means over a span of the run.
struct Means {
  double from = 0;  // seconds
  double to = 0;
  double residentBytes = 0;
  double otherBytes = 0;
  double framesHeld = 0;
  // The least of each: how much there is while nothing happens.
  int descriptors = 0;
  int threads = 0;
  int children = 0;
};

// What the flatness of a run is judged by.
struct Flatness {
  Means warm;  // once warmed up
  Means end;
  Sample quiet;  // behind the end: all mail is sent, the mail server is gone, the cameras feed
  Sample most;   // the most of each figure that was ever seen
  std::vector<std::string> faults;

  double ResidentGrowth() const { return end.residentBytes / warm.residentBytes - 1; }
  double OtherGrowth() const { return end.otherBytes / warm.otherBytes - 1; }
  double FramesGrowth() const { return end.framesHeld / warm.framesHeld - 1; }
};

// How long a run of this many seconds is warming up: five minutes, a quarter of one that is shorter
// than twenty.
double WarmUpSeconds(double seconds);

// Judges the samples of a run, which came one a second, and the quiet one.
Flatness JudgeFlatness(const std::vector<Sample>& samples, const Sample& quiet, double seconds);

}  // namespace tvx::soak
