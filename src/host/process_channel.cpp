#include "host/process_channel.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "base/immortal.h"

namespace tvx {
namespace {

using namespace chunk_kind;

constexpr std::uint32_t kStandardInput = 1;  // word of an input chunk
constexpr std::uint32_t kLaunchFlags = 2;    // word of a launch; neither optional string follows
constexpr std::size_t kMaxPayload = kMaxChunkSize - sizeof(ChunkHeader);

// Request identifiers: the module above, 20 counting bits below.
constexpr std::uint32_t kRequestMask = 0xFFFFF;
constexpr std::uint32_t kRequestAttempts = 0x100000;

// Arguments separated by single NUL bytes, none behind the last. False when an argument holds one
// itself: it would reach the program as two.
bool DescribeLaunch(const std::vector<std::string>& arguments, std::string& description) {
  for (const std::string& argument : arguments) {
    if (argument.find('\0') != std::string::npos) return false;
    if (&argument != &arguments.front()) description.push_back('\0');
    description += argument;
  }
  return true;
}

void SetState(ipc::client& program, ipc::State state, std::uint32_t value) {
  MutexLock lock(program.mutex);
  program.state = state;
  program.value = value;
  program.changed.NotifyAll();
}

// A chunk whose request number is filled in when it is sent.
ChunkMemory MakeChunk(std::uint32_t kind, std::uint32_t word, std::string_view payload) {
  const auto size = static_cast<std::uint32_t>(payload.size() + sizeof(ChunkHeader));
  ChunkMemory chunk(std::malloc(size));
  if (chunk == nullptr) throw std::bad_alloc();
  const ChunkHeader header{size, 0, kind, word};
  std::memcpy(chunk.get(), &header, sizeof(header));
  payload.copy(static_cast<char*>(chunk.get()) + sizeof(header), payload.size());
  return chunk;
}

// Hands a chunk to the sender, whose it then is, whatever the answer.
bool Send(const ProcessChannel::Sender* sender, std::uint32_t request, ChunkMemory chunk) {
  if (sender == nullptr) return false;
  ChunkHeader header{};
  std::memcpy(&header, chunk.get(), sizeof(header));
  header.request = request;
  std::memcpy(chunk.get(), &header, sizeof(header));
  return (*sender)(chunk.release(), header.size);
}

}  // namespace

ProgramInput::ProgramInput(std::string_view bytes) {
  do {
    chunks_.push_back(MakeChunk(kInput, kStandardInput, bytes.substr(0, kMaxPayload)));
    bytes.remove_prefix(std::min(bytes.size(), kMaxPayload));
  } while (!bytes.empty());
}

void ProcessChannel::Register(std::uint32_t module, Sender sender) {
  std::shared_ptr<const Sender> installed;
  if (sender) installed = std::make_shared<const Sender>(std::move(sender));
  {
    MutexLock lock(mutex_);
    module_ = module;
    sender_.swap(installed);
  }
}

std::shared_ptr<ipc::client> ProcessChannel::RunProgram(const std::vector<std::string>& arguments) {
  auto program = std::make_shared<ipc::client>();
  std::string description;
  const bool describable = DescribeLaunch(arguments, description);
  {
    MutexLock lock(mutex_);
    std::uint32_t request = 0;
    if (closed_ || !ChooseRequest(request)) {
      SetState(*program, ipc::State::Failed, 0);
      return program;
    }
    lastRequest_ = request;
    program->request = request;
    if (!describable || description.size() > kMaxPayload) {  // only input may be split
      SetState(*program, ipc::State::Failed, 0);
      return program;
    }
    ChunkMemory launch = MakeChunk(kLaunch, kLaunchFlags, description);
    const auto entry = pending_.emplace(request, program).first;
    if (!Send(sender_.get(), request, std::move(launch))) {
      pending_.erase(entry);
      SetState(*program, ipc::State::Failed, 0);
      return program;
    }
  }
  MutexLock lock(program->mutex);
  while (program->state == ipc::State::Requested) program->changed.Wait(program->mutex);
  return program;
}

bool ProcessChannel::ChooseRequest(std::uint32_t& request) const {
  std::uint32_t candidate = lastRequest_;
  for (std::uint32_t attempt = 0; attempt < kRequestAttempts; ++attempt) {
    candidate = ((candidate + 1) & kRequestMask) | (module_ << 4);
    if (pending_.find(candidate) == pending_.end()) {
      request = candidate;
      return true;
    }
  }
  return false;
}

bool ProcessChannel::WriteInput(ipc::client& program, ProgramInput input) {
  std::shared_ptr<const Sender> sender;
  {
    MutexLock lock(mutex_);
    sender = sender_;
  }
  for (ChunkMemory& chunk : input.chunks_) {
    if (Send(sender.get(), program.request, std::move(chunk))) continue;
    MutexLock lock(mutex_);
    pending_.erase(program.request);
    SetState(program, ipc::State::Failed, 0);
    return false;
  }
  return true;
}

bool ProcessChannel::Receive(const void* chunk, std::uint32_t length) {
  if (chunk == nullptr || length < sizeof(ChunkHeader)) return false;
  ChunkHeader header{};
  std::memcpy(&header, chunk, sizeof(header));
  const char* payload = static_cast<const char*>(chunk) + sizeof(header);
  const std::size_t payloadLength = length - sizeof(header);

  MutexLock lock(mutex_);
  const auto entry = pending_.find(header.request);
  if (entry == pending_.end()) return false;
  const std::shared_ptr<ipc::client> program = entry->second;
  switch (header.kind) {
    case kOutput:
    case kErrors: {
      MutexLock programLock(program->mutex);
      (header.kind == kOutput ? program->output : program->errors).Append(payload, payloadLength);
      program->changed.NotifyAll();
      return true;
    }
    case kRunning:
      SetState(*program, ipc::State::Running, header.word);
      return true;
    case kFailed:
    case kFinished:
      pending_.erase(entry);
      SetState(*program, header.kind == kFailed ? ipc::State::Failed : ipc::State::Finished,
               header.word);
      return true;
    default:
      return false;
  }
}

void ProcessChannel::Close() {
  MutexLock lock(mutex_);
  for (auto& [request, program] : pending_) {
    MutexLock programLock(program->mutex);
    const bool launched = program->state == ipc::State::Running;
    program->state = launched ? ipc::State::Finished : ipc::State::Failed;
    program->value = 0;
    program->abandoned = launched;
    program->changed.NotifyAll();
  }
  pending_.clear();
  closed_ = true;
}

bool ProcessChannel::IsClosed() {
  MutexLock lock(mutex_);
  return closed_;
}

bool ReadLine(ipc::client& program, OutputStream stream, std::string& line, Deadline deadline) {
  MutexLock lock(program.mutex);
  ipc::LineBuffer& buffer = stream == OutputStream::Output ? program.output : program.errors;
  for (;;) {
    if (buffer.TakeLine(line)) return true;
    if (program.state != ipc::State::Running) return buffer.TakeRest(line);
    if (deadline == Deadline::max()) {
      program.changed.Wait(program.mutex);
    } else if (program.changed.WaitUntil(program.mutex, deadline)) {
      return false;
    }
  }
}

ProcessChannel& TheProcessChannel() {
  static Immortal<ProcessChannel> channel;
  return channel.value;
}

}  // namespace tvx
