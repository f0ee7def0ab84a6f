#include "simulated_host/progress.h"

#include <boost/chrono/duration.hpp>

#include "simulated_host/host_event.h"

namespace tvx::tool {
namespace {

using Clock = boost::chrono::steady_clock;

Clock::duration Duration(double seconds) {
  return boost::chrono::duration_cast<Clock::duration>(boost::chrono::duration<double>(seconds));
}

}  // namespace

void Progress::Touch() {
  lastSign_ = Clock::now();
  changed_.NotifyAll();
}

void Progress::EventSent(const std::vector<std::int32_t>& profiles) {
  MutexLock lock(mutex_);
  for (const std::int32_t profile : profiles) ++awaited_[profile];
  Touch();
}

void Progress::StatusReported(std::int32_t profile, std::int32_t status) {
  MutexLock lock(mutex_);
  if (status == kStatusDelivered) ++delivered_;
  if (status != kStatusUnknown) {
    const auto awaited = awaited_.find(profile);
    if (awaited != awaited_.end() && --awaited->second == 0) awaited_.erase(awaited);
  }
  Touch();
}

void Progress::ProgramRequested() {
  MutexLock lock(mutex_);
  ++programs_;
  Touch();
}

void Progress::ProgramGone() {
  MutexLock lock(mutex_);
  --programs_;
  Touch();
}

void Progress::ClipsLast(int seconds) {
  MutexLock lock(mutex_);
  longestClip_ = seconds;
}

int Progress::LongestClip() {
  MutexLock lock(mutex_);
  return longestClip_;
}

void Progress::CameraStarts() {
  MutexLock lock(mutex_);
  ++startingCameras_;
}

void Progress::CameraFeeds() {
  MutexLock lock(mutex_);
  --startingCameras_;
  changed_.NotifyAll();
}

void Progress::Happened() {
  MutexLock lock(mutex_);
  Touch();
}

void Progress::Interrupt() {
  MutexLock lock(mutex_);
  interrupted_ = true;
  changed_.NotifyAll();
}

bool Progress::Pause(double seconds) {
  const Time end = Clock::now() + Duration(seconds);
  MutexLock lock(mutex_);
  while (!interrupted_ && Clock::now() < end) changed_.WaitUntil(mutex_, end);
  return !interrupted_;
}

bool Progress::WaitUntilInterrupted() {
  MutexLock lock(mutex_);
  while (!interrupted_) changed_.Wait(mutex_);
  return false;
}

bool Progress::WaitForCameras() {
  MutexLock lock(mutex_);
  while (!interrupted_ && startingCameras_ > 0) changed_.Wait(mutex_);
  return !interrupted_;
}

bool Progress::WaitDelivered(int count) {
  MutexLock lock(mutex_);
  while (!interrupted_ && delivered_ < count) changed_.Wait(mutex_);
  return !interrupted_;
}

bool Progress::WaitIdle(double settleSeconds) {
  MutexLock lock(mutex_);
  while (!interrupted_) {
    if (programs_ > 0) {
      changed_.Wait(mutex_);
      continue;
    }
    const Time settled = lastSign_ + Duration(settleSeconds);
    if (awaited_.empty() || Clock::now() >= settled) {
      // What went unanswered until now is not due, and must not make the next wait longer.
      awaited_.clear();
      return true;
    }
    changed_.WaitUntil(mutex_, settled);
  }
  return false;
}

}  // namespace tvx::tool
