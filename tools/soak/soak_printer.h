// Takes the timeline of the host into the books, and keeps it in a file for those who ask why.
//
// Threads: called under the timeline's lock; the books have locks of their own, taken below it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "simulated_host/timeline.h"
#include "soak/ledger.h"

namespace tvx::soak {

// What the host itself found at fault, and its account of the frames.
struct HostFindings {
  std::vector<std::string> faults;
  std::uint64_t framesOffered = 0;
  std::uint64_t framesTaken = 0;
  std::uint64_t framesGivenBack = 0;
};

// Shared by the printer, which the timeline owns, and by those who read.
class HostFindingsBook {
 public:
  void AddFault(const std::string& text) EXCLUDES(mutex_);
  void Add(const tool::FrameAccount& account) EXCLUDES(mutex_);
  HostFindings Get() const EXCLUDES(mutex_);

 private:
  mutable Mutex mutex_;
  HostFindings findings_ GUARDED_BY(mutex_);
};

// Both books must outlive the printer. Throws std::system_error when the log cannot be written.
std::unique_ptr<tool::TimelinePrinter> MakeSoakPrinter(Ledger& ledger, HostFindingsBook& findings,
                                                       const std::string& log);

}  // namespace tvx::soak
