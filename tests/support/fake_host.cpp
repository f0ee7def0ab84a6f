#include "support/fake_host.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <utility>

namespace tvx::test {
namespace {

FakeHost* current = nullptr;

template <typename T>
T Copy(std::mutex& mutex, const T& value) {
  std::lock_guard<std::mutex> lock(mutex);
  return value;
}

}  // namespace

void PrintTo(const LogLine& line, std::ostream* out) {
  *out << line.level << ' ' << line.text;
}

FakeHost::FakeHost() {
  if (current != nullptr) throw std::logic_error("two fake hosts at once");
  current = this;
}

FakeHost::~FakeHost() {
  current = nullptr;
}

int FakeHost::Entry(HostRequest* request, HostReply* reply) {
  return current == nullptr ? 0 : current->Take(*request, *reply);
}

int FakeHost::Take(HostRequest& request, HostReply& reply) {
  std::function<void(const SentChunk&)> handler;
  SentChunk chunk{};
  Reaction reaction{request.command, 0, 0};
  {
    std::lock_guard<std::mutex> lock(mutex_);
    CheckForm(request);
    switch (request.command) {
      case HostCommand::Log:
        log_.push_back({request.level, static_cast<const char*>(request.payload)});
        if (log_.back().text.size() + 1 != request.length) malformed_.push_back("log length");
        break;
      case HostCommand::ConfigDocument:
      case HostCommand::StatusDocument:
        documents_.push_back(
            {request.command,
             std::string(static_cast<const char*>(request.payload), request.length)});
        break;
      case HostCommand::ReleaseFrame:
        released_.push_back(request.payload);
        break;
      case HostCommand::Watchdog:
        ++watchdogEvents_;
        break;
      case HostCommand::ChannelMessage: {
        ChunkHeader header{};
        std::memcpy(&header, request.payload, sizeof(header));
        const auto* bytes = static_cast<const char*>(request.payload) + sizeof(header);
        chunk = {header.request, header.kind, header.word,
                 std::string(bytes, request.length - sizeof(header))};
        if (header.size != request.length) malformed_.push_back("chunk size");
        std::free(const_cast<void*>(request.payload));
        chunks_.push_back(chunk);
        handler = onChunk_;
        break;
      }
    }
    for (const Reaction& candidate : reactions_) {
      if (candidate.command == request.command) reaction = candidate;
    }
  }
  changed_.notify_all();
  if (handler) handler(chunk);
  reply.status = reaction.status;
  return reaction.returned;
}

void FakeHost::CheckForm(const HostRequest& request) {
  HostRequest expected{};
  expected.size = kHostRequestSize;
  expected.version = 1;
  expected.module = kModuleId;
  expected.length = request.length;
  expected.payload = request.payload;
  expected.command = request.command;
  expected.payloadKind = request.payloadKind;
  if (request.command == HostCommand::Log) expected.level = request.level;
  if (std::memcmp(&expected, &request, sizeof(request)) != 0) {
    malformed_.push_back("request of command " +
                         std::to_string(static_cast<unsigned>(request.command)));
  }
}

std::vector<LogLine> FakeHost::Log() const {
  return Copy(mutex_, log_);
}

std::vector<std::string> FakeHost::LogTexts() const {
  std::vector<std::string> texts;
  for (const LogLine& line : Log()) texts.push_back(line.text);
  return texts;
}

int FakeHost::Logged(const std::string& text) const {
  const std::vector<std::string> texts = LogTexts();
  return static_cast<int>(std::count(texts.begin(), texts.end(), text));
}

void FakeHost::ClearLog() {
  std::lock_guard<std::mutex> lock(mutex_);
  log_.clear();
}

std::vector<SentDocument> FakeHost::Documents() const {
  return Copy(mutex_, documents_);
}
std::vector<const void*> FakeHost::ReleasedFrames() const {
  return Copy(mutex_, released_);
}
int FakeHost::WatchdogEvents() const {
  return Copy(mutex_, watchdogEvents_);
}
std::vector<SentChunk> FakeHost::Chunks() const {
  return Copy(mutex_, chunks_);
}
std::vector<std::string> FakeHost::MalformedRequests() const {
  return Copy(mutex_, malformed_);
}

void FakeHost::OnChunk(std::function<void(const SentChunk&)> handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  onChunk_ = std::move(handler);
}

void FakeHost::Answer(HostCommand command, int returned, std::uint32_t status) {
  std::lock_guard<std::mutex> lock(mutex_);
  reactions_.push_back({command, returned, status});
}

bool FakeHost::WaitFor(const std::function<bool()>& condition) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    // The condition may also look at things this object is not told of, hence the short slices.
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, std::chrono::milliseconds(5));
  }
  return true;
}

std::string MakeReport(std::uint32_t request, std::uint32_t kind, std::uint32_t word,
                       const std::string& payload) {
  const ChunkHeader header{static_cast<std::uint32_t>(sizeof(ChunkHeader) + payload.size()),
                           request, kind, word};
  return std::string(reinterpret_cast<const char*>(&header), sizeof(header)) + payload;
}

}  // namespace tvx::test
