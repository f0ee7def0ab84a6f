#include "simulated_host/timeline.h"

#include <utility>

namespace tvx::tool {

Timeline::Timeline(std::unique_ptr<TimelinePrinter> printer, double speed)
    : start_(std::chrono::steady_clock::now()), speed_(speed), printer_(std::move(printer)) {}

Timeline::~Timeline() {
  Finish();
}

// The time is taken under the lock, so that lines never go back in time.
double Timeline::Now() const {
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
  return elapsed.count() * speed_;
}

void Timeline::Record(const HostEvent& event) {
  MutexLock lock(mutex_);
  const double now = Now();
  if (std::holds_alternative<Fault>(event)) ++faults_;
  if (const auto* report = std::get_if<ProfileReport>(&event)) {
    delivered_ += report->status == kStatusDelivered;
    failed_ += report->status == kStatusFailed;
  }
  printer_->Print(now, event);
  for (const RetryChange& change : retries_.Follow(now, event)) {
    failed_ -= change.what == RetryChange::What::Sent;
    printer_->Print(now, change);
  }
}

void Timeline::Refresh() {
  MutexLock lock(mutex_);
  printer_->Refresh(Now());
}

void Timeline::Finish() {
  MutexLock lock(mutex_);
  printer_->Finish(Now());
}

bool Timeline::IsDelivered() const {
  MutexLock lock(mutex_);
  return delivered_ > 0 && failed_ == 0;
}

int Timeline::Faults() const {
  MutexLock lock(mutex_);
  return faults_;
}

}  // namespace tvx::tool
