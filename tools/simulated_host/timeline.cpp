#include "simulated_host/timeline.h"

#include <utility>

namespace tvx::tool {

Timeline::Timeline(std::unique_ptr<TimelinePrinter> printer, double speed)
    : start_(std::chrono::steady_clock::now()), speed_(speed), printer_(std::move(printer)) {}

void Timeline::Record(const Happening& happening) {
  // The time is taken under the lock, so that lines never go back in time.
  MutexLock lock(mutex_);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
  if (std::holds_alternative<Fault>(happening)) ++faults_;
  printer_->Print(elapsed.count() * speed_, happening);
}

int Timeline::Faults() const {
  MutexLock lock(mutex_);
  return faults_;
}

}  // namespace tvx::tool
