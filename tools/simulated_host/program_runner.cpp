#include "simulated_host/program_runner.h"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <cstring>
#include <system_error>
#include <utility>

#include "delivery/failure_causes.h"
#include "host/host_records.h"
#include "simulated_host/format.h"
#include "simulated_host/program.h"
#include "simulated_host/retry_tracker.h"

namespace tvx::tool {
namespace {

using namespace chunk_kind;

// Launch flags: each adds one string before the program's path. This host has no use for them.
constexpr std::uint32_t kFirstString = 8;
constexpr std::uint32_t kSecondString = 16;

// Strings separated by single NUL bytes, with none behind the last.
std::vector<std::string> ReadLaunchDescription(std::uint32_t flags, const std::string& text) {
  std::vector<std::string> strings;
  std::size_t begin = 0;
  for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
    end = text.find('\0', begin);
    strings.push_back(text.substr(begin, end - begin));
  }
  const std::ptrdiff_t skip = ((flags & kFirstString) != 0) + ((flags & kSecondString) != 0);
  if (skip >= static_cast<std::ptrdiff_t>(strings.size())) return {std::string()};
  strings.erase(strings.begin(), strings.begin() + skip);
  return strings;
}

// Null: a server has taken the mail.
const FailureCause* CauseOfEnd(int waitStatus, const TransferDialogue& dialogue) {
  if (waitStatus == 0) return nullptr;
  const auto& stages = dialogue.Stages();
  const TransferStage stage = stages.empty() ? TransferStage() : stages.back();
  const std::string exit =
      WIFEXITED(waitStatus) ? std::to_string(WEXITSTATUS(waitStatus)) : "signal";
  return &CauseOf(exit, stage.name, stage.reply);
}

}  // namespace

ProgramRunner::ProgramRunner(boost::asio::io_context& loop, Timeline& timeline, Progress& progress,
                             Sender send)
    : loop_(loop), timeline_(timeline), progress_(progress), send_(std::move(send)) {}

ProgramRunner::~ProgramRunner() = default;

void ProgramRunner::Take(const void* chunk) {
  ChunkHeader header{};
  std::memcpy(&header, chunk, sizeof(header));
  std::string payload(static_cast<const char*>(chunk) + sizeof(header),
                      header.size - sizeof(header));
  if (header.kind == kLaunch) {
    progress_.ProgramRequested();
    boost::asio::post(loop_, [this, header, text = std::move(payload)] {
      Launch(header.request, ReadLaunchDescription(header.word, text));
    });
  } else if (header.kind == kInput) {
    // Only the last chunk of an input can be less than full.
    const bool last = header.size < kMaxChunkSize;
    boost::asio::post(loop_, [this, header, last, text = std::move(payload)]() mutable {
      Feed(header.request, std::move(text), last);
    });
  }
}

void ProgramRunner::Launch(std::uint32_t request, std::vector<std::string> arguments) {
  const std::string name = arguments.front();
  const tool::Launch launch{request, arguments};
  timeline_.Record(launch);
  if (programs_.count(request) != 0) {
    timeline_.Record(
        Fault{"a launch takes the identifier of a running program, " + Format("0x%x", request)});
    progress_.ProgramGone();
    return Report(request, kFailed, EBUSY);
  }
  std::shared_ptr<TransferDialogue> dialogue;
  if (!UploadedFile(launch).empty()) {
    dialogue = std::make_shared<TransferDialogue>(arguments);
    arguments.emplace_back("-v");
  }
  Program::Reports reports;
  reports.output = [this, dialogue](const ProgramOutput& output) {
    const std::uint32_t kind = output.header.kind;
    if (dialogue) {
      Deliver(output.header.request, kind, dialogue->Take(kind == kErrors, output.Text()));
    } else {
      send_(&output.header, output.header.size);
    }
    return true;
  };
  reports.ended = [this, request](int waitStatus, double seconds) {
    Ended(request, waitStatus, seconds);
  };
  auto program = std::make_shared<Program>(loop_, request, std::move(reports));
  const int error = program->Start(arguments);
  if (error != 0) {
    timeline_.Record(LaunchFailure{request, name, error});
    if (dialogue) {
      timeline_.Record(Explanation{&CauseOf("start", "", std::generic_category().message(error))});
    }
    Report(request, kFailed, static_cast<std::uint32_t>(error));
    return progress_.ProgramGone();
  }
  programs_.emplace(request, Entry{name, program, dialogue});
  Report(request, kRunning, 0);
  program->Run();
}

void ProgramRunner::Feed(std::uint32_t request, std::string bytes, bool last) {
  const auto entry = programs_.find(request);
  // A program may well end before its input has arrived: such input is lost without a word.
  if (entry != programs_.end()) entry->second.program->Feed(std::move(bytes), last);
}

void ProgramRunner::Ended(std::uint32_t request, int waitStatus, double seconds) {
  const auto entry = programs_.find(request);
  timeline_.Record(ProgramEnd{request, entry->second.name, waitStatus, seconds});
  if (const auto dialogue = entry->second.dialogue) {
    Deliver(request, kOutput, dialogue->TakeRest(0));
    Deliver(request, kErrors, dialogue->TakeRest(1));
    timeline_.Record(TransferEnd{request, CauseOfEnd(waitStatus, *dialogue), *dialogue});
  }
  programs_.erase(entry);
  Report(request, kFinished, static_cast<std::uint32_t>(waitStatus));
  progress_.ProgramGone();
}

void ProgramRunner::Deliver(std::uint32_t request, std::uint32_t kind, std::string_view text) {
  constexpr std::size_t kMost = kMaxChunkSize - sizeof(ChunkHeader);
  while (!text.empty()) {
    const std::string_view part = text.substr(0, kMost);
    const auto size = static_cast<std::uint32_t>(sizeof(ChunkHeader) + part.size());
    const ChunkHeader header{size, request, kind, 0};
    std::string chunk(reinterpret_cast<const char*>(&header), sizeof(header));
    chunk += part;
    send_(chunk.data(), size);
    text.remove_prefix(part.size());
  }
}

void ProgramRunner::Report(std::uint32_t request, std::uint32_t kind, std::uint32_t word) {
  const ChunkHeader report{sizeof(ChunkHeader), request, kind, word};
  send_(&report, sizeof(report));
}

void ProgramRunner::KillAll() {
  for (const auto& [request, entry] : programs_) entry.program->Signal(SIGKILL);
}

std::vector<std::string> ProgramRunner::Names() const {
  std::vector<std::string> names;
  for (const auto& [request, entry] : programs_) names.push_back(entry.name);
  return names;
}

}  // namespace tvx::tool
