// A bar below what another printer prints, while files are fed.
// Threads: under the timeline's lock, as every printer.
#pragma once

#include <cstdio>
#include <memory>

#include "simulated_host/live_area.h"
#include "simulated_host/run_status.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

class ProgressBar : public TimelinePrinter {
 public:
  // The terminal is not owned. The printer may print on the same one, or elsewhere.
  ProgressBar(std::FILE* terminal, double speed, std::unique_ptr<TimelinePrinter> printer);

  void Print(double seconds, const Happening& happening) override;
  void Observe(double seconds, const Crossing& crossing) override;
  void Refresh(double seconds) override;
  void Finish(double seconds) override;

 private:
  LiveArea area_;
  const double speed_;
  const std::unique_ptr<TimelinePrinter> printer_;
  RunStatus status_;
};

}  // namespace tvx::tool
