#include "simulated_host/frame_books.h"

#include <cstring>
#include <string>
#include <utility>

namespace tvx::tool {
namespace {

constexpr std::size_t kMaxRetiredBytes = 32u << 20;
constexpr int kOverwritten = 0xEE;

}  // namespace

const void* FrameBooks::Offer(std::uint32_t stream, std::unique_ptr<std::uint8_t[]> bytes,
                              std::size_t size) {
  const void* handle = bytes.get();
  MutexLock lock(mutex_);
  FrameAccount& account = accounts_[stream];
  account.stream = stream;
  ++account.offered;
  buffers_[handle] = {stream, State::Offered, std::move(bytes), size};
  return handle;
}

void FrameBooks::Answered(const void* handle, bool taken) {
  MutexLock lock(mutex_);
  Buffer& buffer = buffers_.at(handle);
  const bool cameAtOnce = buffer.state == State::CameAtOnce;
  if (taken) {
    ++accounts_[buffer.stream].taken;
    if (cameAtOnce) return Retire(handle, buffer, State::GivenBack);
    buffer.state = State::Taken;
    return;
  }
  if (cameAtOnce) RecordFault(buffer, "was given back, but Write answered 0");
  Retire(handle, buffer, State::Refused);
}

void FrameBooks::GiveBack(const void* handle) {
  MutexLock lock(mutex_);
  const auto found = buffers_.find(handle);
  if (found == buffers_.end()) {
    timeline_.Record(Fault{"a frame was given back that the plug-in never took"});
    return;
  }
  Buffer& buffer = found->second;
  const bool taken = buffer.state == State::Taken;
  if (buffer.state == State::Refused) {
    return RecordFault(buffer, "was given back that Write had answered with 0");
  }
  if (!taken && buffer.state != State::Offered) return RecordFault(buffer, "was given back twice");
  ++accounts_[buffer.stream].givenBack;
  timeline_.Record(FrameReturn{buffer.stream, buffer.size});
  // Last, as the buffer may be too large to be kept.
  if (taken) return Retire(handle, buffer, State::GivenBack);
  buffer.state = State::CameAtOnce;
}

void FrameBooks::Retire(const void* handle, Buffer& buffer, State state) {
  buffer.state = state;
  std::memset(buffer.bytes.get(), kOverwritten, buffer.size);
  retiredBytes_ += buffer.size;
  retired_.push_back(handle);
  while (retiredBytes_ > kMaxRetiredBytes) {
    const auto oldest = buffers_.find(retired_.front());
    retiredBytes_ -= oldest->second.size;
    buffers_.erase(oldest);
    retired_.pop_front();
  }
}

void FrameBooks::RecordFault(const Buffer& buffer, const char* what) {
  timeline_.Record(Fault{"a frame of stream " + std::to_string(buffer.stream) + " " + what});
}

void FrameBooks::Unloaded() {
  MutexLock lock(mutex_);
  std::map<std::uint32_t, std::uint64_t> lost;
  for (const auto& [handle, buffer] : buffers_) {
    if (buffer.state == State::Taken) ++lost[buffer.stream];
  }
  for (const auto& [stream, account] : accounts_) timeline_.Record(account);
  for (const auto& [stream, count] : lost) {
    timeline_.Record(Fault{std::to_string(count) + (count == 1 ? " frame" : " frames") +
                           " of stream " + std::to_string(stream) +
                           " had not come back when Unload returned"});
  }
}

}  // namespace tvx::tool
