#include "support/fake_host.h"

#include <chrono>
#include <cstdlib>
#include <cstring>

namespace tvx::test {

int FakeHost::Take(HostRequest& request, HostReply& reply) {
  reply.status = 0;
  if (request.command == HostCommand::ReleaseFrame) ++framesReleased_;
  if (request.command == HostCommand::Watchdog) ++watchdogEvents_;
  if (memory_ == Memory::CountsOnly && request.command != HostCommand::ChannelMessage) return 0;

  if (const auto onCall = Locked(onCall_)) onCall();
  std::function<void()> tell;
  std::pair<int, std::uint32_t> answer;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    CheckForm(request, reply);
    const auto* bytes = static_cast<const char*>(request.payload);
    switch (request.command) {
      case HostCommand::Log:
        log_.push_back({request.level, bytes});
        if (log_.back().text.size() + 1 != request.length) problems_.push_back("log length");
        break;
      case HostCommand::ConfigDocument:
      case HostCommand::StatusDocument:
        documents_.push_back({request.command, std::string(bytes, request.length)});
        if (onDocument_) tell = [call = onDocument_, it = documents_.back()] { call(it); };
        break;
      case HostCommand::ReleaseFrame:
        if (lent_.erase(bytes) == 0) problems_.push_back("a frame came back that was not out");
        break;
      case HostCommand::Watchdog:
        break;
      case HostCommand::ChannelMessage: {
        ChunkHeader header{};
        std::memcpy(&header, bytes, sizeof(header));
        SentChunk chunk{header.request, header.kind, header.word,
                        std::string(bytes + sizeof(header), request.length - sizeof(header))};
        if (header.size != request.length) problems_.push_back("chunk size");
        std::free(const_cast<void*>(request.payload));
        if (memory_ == Memory::Full) chunks_.push_back(chunk);
        if (onChunk_) tell = [call = onChunk_, chunk] { call(chunk); };
        break;
      }
    }
    answer = answers_[request.command];
  }
  changed_.notify_all();
  if (tell) tell();
  reply.status = answer.second;
  return answer.first;
}

const void* FakeHost::Lend(std::string_view bytes) {
  std::unique_ptr<char[]> buffer = CopyOf(bytes);
  const void* const handle = buffer.get();
  const std::lock_guard<std::mutex> lock(mutex_);
  lent_.emplace(handle, std::move(buffer));
  return handle;
}

void FakeHost::TakeBack(const void* handle) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (lent_.erase(handle) == 0) problems_.push_back("a frame was refused that had come back");
}

void FakeHost::CheckForm(const HostRequest& request, const HostReply& reply) {
  // The host's own numbers, not the plug-in's names for them.
  const std::map<std::uint32_t, std::uint32_t> payloadKinds = {
      {4, 0x1000010}, {32, 0x1000000}, {64, 0x1000002}, {256, 0x1000010}, {512, 0}, {8192, 0}};
  const auto command = static_cast<std::uint32_t>(request.command);
  const auto kind = payloadKinds.find(command);
  const bool isDocument = command == 4 || command == 256;
  HostRequest expected{};
  expected.size = 184;
  expected.version = 1;
  expected.module = 0xC0000;
  expected.length = command == 512 || command == 32 ? 0 : request.length;
  expected.payload = request.payload;
  expected.command = request.command;
  expected.payloadKind = static_cast<PayloadKind>(kind == payloadKinds.end() ? ~0u : kind->second);
  if (command == 64) expected.level = request.level;
  if (std::memcmp(&expected, &request, sizeof(request)) != 0 || reply.size != 12 ||
      reply.version != 1 ||
      (isDocument && static_cast<const char*>(request.payload)[request.length] != '\0')) {
    problems_.push_back("request of command " + std::to_string(command));
  }
}

std::vector<std::string> FakeHost::Statuses() const {
  std::vector<std::string> statuses;
  for (const auto& [command, text] : Documents()) {
    if (command != HostCommand::StatusDocument) continue;
    const auto value = [&text = text](const std::string& name, std::size_t from) {
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

}  // namespace tvx::test
