#include "simulated_host/program_runner.h"

#include <signal.h>

#include <boost/asio/post.hpp>
#include <cstring>
#include <utility>

#include "host/host_records.h"
#include "simulated_host/format.h"
#include "simulated_host/program.h"

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

}  // namespace

ProgramRunner::ProgramRunner(boost::asio::io_context& loop, Timeline& timeline, Progress& progress,
                             Deliver deliver)
    : loop_(loop), timeline_(timeline), progress_(progress), deliver_(std::move(deliver)) {}

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
  timeline_.Record(tool::Launch{request, arguments});
  if (programs_.count(request) != 0) {
    timeline_.Record(
        Fault{"a launch takes the identifier of a running program, " + Format("0x%x", request)});
    progress_.ProgramGone();
    return Report(request, kFailed, EBUSY);
  }
  Program::Reports reports;
  reports.output = [this](const ProgramOutput& output) {
    deliver_(&output.header, output.header.size);
    return true;
  };
  reports.ended = [this, request](int waitStatus, double seconds) {
    Ended(request, waitStatus, seconds);
  };
  auto program = std::make_shared<Program>(loop_, request, std::move(reports));
  const int error = program->Start(arguments);
  if (error != 0) {
    timeline_.Record(LaunchFailure{request, name, error});
    Report(request, kFailed, static_cast<std::uint32_t>(error));
    return progress_.ProgramGone();
  }
  programs_.emplace(request, Entry{name, program});
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
  programs_.erase(entry);
  Report(request, kFinished, static_cast<std::uint32_t>(waitStatus));
  progress_.ProgramGone();
}

void ProgramRunner::Report(std::uint32_t request, std::uint32_t kind, std::uint32_t word) {
  const ChunkHeader report{sizeof(ChunkHeader), request, kind, word};
  deliver_(&report, sizeof(report));
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
