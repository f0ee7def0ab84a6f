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

bool (*Crossing::note)(bool) = [](bool) { return false; };

void PrintTo(const LogLine& line, std::ostream* out) {
  *out << line.level << ' ' << line.text;
}

FakeHost::FakeHost(Memory memory) : memory_(memory) {
  if (current != nullptr) throw std::logic_error("two fake hosts at once");
  current = this;
}

FakeHost::~FakeHost() {
  current = nullptr;
}

int FakeHost::Entry(HostRequest* request, HostReply* reply) {
  const Crossing out(false);
  return current == nullptr ? 0 : current->Take(*request, *reply);
}

int FakeHost::Take(HostRequest& request, HostReply& reply) {
  reply.status = 0;
  if (request.command == HostCommand::ReleaseFrame) ++framesReleased_;
  if (request.command == HostCommand::Watchdog) ++watchdogEvents_;
  if (memory_ == Memory::CountsOnly && request.command != HostCommand::ChannelMessage) return 0;

  std::function<void(const SentChunk&)> onChunk;
  std::function<void(const SentDocument&)> onDocument;
  SentChunk chunk{};
  SentDocument document{};
  Reaction reaction{request.command, 0, 0};
  {
    std::lock_guard<std::mutex> lock(mutex_);
    CheckForm(request, reply);
    const auto* bytes = static_cast<const char*>(request.payload);
    switch (request.command) {
      case HostCommand::Log:
        log_.push_back({request.level, bytes});
        if (log_.back().text.size() + 1 != request.length) problems_.push_back("log length");
        break;
      case HostCommand::ConfigDocument:
      case HostCommand::StatusDocument:
        document = {request.command, std::string(bytes, request.length)};
        documents_.push_back(document);
        onDocument = onDocument_;
        break;
      case HostCommand::ReleaseFrame:
        Release(request.payload);
        break;
      case HostCommand::Watchdog:
        break;
      case HostCommand::ChannelMessage: {
        ChunkHeader header{};
        std::memcpy(&header, bytes, sizeof(header));
        chunk = {header.request, header.kind, header.word,
                 std::string(bytes + sizeof(header), request.length - sizeof(header))};
        if (header.size != request.length) problems_.push_back("chunk size");
        std::free(const_cast<void*>(request.payload));
        if (memory_ == Memory::Full) chunks_.push_back(chunk);
        onChunk = onChunk_;
        break;
      }
    }
    for (const Reaction& candidate : reactions_) {
      if (candidate.command == request.command) reaction = candidate;
    }
  }
  changed_.notify_all();
  if (onChunk) onChunk(chunk);
  if (onDocument) onDocument(document);
  reply.status = reaction.status;
  return reaction.returned;
}

void FakeHost::Release(const void* handle) {
  released_.push_back(handle);
  if (keepsFrameBooks_ && lent_.erase(handle) == 0) {
    problems_.push_back("a frame came back that was not out");
  }
}

const void* FakeHost::Lend(std::string_view bytes) {
  std::unique_ptr<char[]> buffer(new char[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), buffer.get());
  const void* const handle = buffer.get();
  std::lock_guard<std::mutex> lock(mutex_);
  keepsFrameBooks_ = true;
  lent_.emplace(handle, std::move(buffer));
  return handle;
}

void FakeHost::TakeBack(const void* handle) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (lent_.erase(handle) == 0) problems_.push_back("a frame was refused that had come back");
}

std::size_t FakeHost::FramesOut() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lent_.size();
}

void FakeHost::CheckForm(const HostRequest& request, const HostReply& reply) {
  // The host's own numbers, not the plug-in's names for them.
  static const std::map<std::uint32_t, std::uint32_t> kPayloadKinds = {
      {4, 0x1000010}, {32, 0x1000000}, {64, 0x1000002}, {256, 0x1000010}, {512, 0}, {8192, 0}};
  const auto command = static_cast<std::uint32_t>(request.command);
  const auto kind = kPayloadKinds.find(command);
  const bool isDocument = command == 4 || command == 256;
  HostRequest expected{};
  expected.size = 184;
  expected.version = 1;
  expected.module = 0xC0000;
  expected.length = command == 512 || command == 32 ? 0 : request.length;
  expected.payload = request.payload;
  expected.command = request.command;
  expected.payloadKind = static_cast<PayloadKind>(kind == kPayloadKinds.end() ? ~0u : kind->second);
  if (command == 64) expected.level = request.level;
  if (std::memcmp(&expected, &request, sizeof(request)) != 0 || reply.size != 12 ||
      reply.version != 1 ||
      (isDocument && static_cast<const char*>(request.payload)[request.length] != '\0')) {
    problems_.push_back("request of command " +
                        std::to_string(static_cast<unsigned>(request.command)));
  }
}

std::vector<LogLine> FakeHost::Log() const {
  return Copy(mutex_, log_);
}

int FakeHost::Logged(const std::string& text) const {
  const auto log = Log();
  return static_cast<int>(std::count_if(log.begin(), log.end(),
                                        [&](const LogLine& line) { return line.text == text; }));
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
std::vector<SentChunk> FakeHost::Chunks() const {
  return Copy(mutex_, chunks_);
}
std::vector<std::string> FakeHost::Problems() const {
  return Copy(mutex_, problems_);
}

void FakeHost::AddProblem(const std::string& text) {
  std::lock_guard<std::mutex> lock(mutex_);
  problems_.push_back(text);
}

std::vector<std::string> FakeHost::Statuses() const {
  std::vector<std::string> statuses;
  for (const SentDocument& document : Documents()) {
    if (document.command != HostCommand::StatusDocument) continue;
    const std::string& text = document.text;
    const auto value = [&](const std::string& name, std::size_t from) {
      from = text.find(name + "=\"", from) + name.size() + 2;
      return text.substr(from, text.find('"', from) - from);
    };
    for (std::size_t at = 0; (at = text.find("<Profile ", at)) != std::string::npos; ++at) {
      if (value("Status", at) == "-1") continue;  // a change, no result
      statuses.push_back(value("ID", at) + ":" + value("Status", at));
    }
  }
  return statuses;
}

void FakeHost::OnChunk(std::function<void(const SentChunk&)> handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  onChunk_ = std::move(handler);
}

void FakeHost::OnDocument(std::function<void(const SentDocument&)> handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  onDocument_ = std::move(handler);
}

void FakeHost::Answer(HostCommand command, int returned, std::uint32_t status) {
  std::lock_guard<std::mutex> lock(mutex_);
  reactions_.push_back({command, returned, status});
}

bool FakeHost::WaitFor(const std::function<bool()>& condition) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
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
