#include "mail/notify_helper.h"

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "base/clock.h"
#include "base/input_limits.h"
#include "log/host_log.h"

namespace tvx {
namespace {

// Waits until the program is no longer running, and gives its raw wait status. Nothing when the
// plug-in was stopped meanwhile: an end that nobody saw must not count as a delivery.
std::optional<std::uint32_t> WaitForEnd(ipc::client& program) {
  MutexLock lock(program.mutex);
  while (program.state == ipc::State::Running) program.changed.Wait(program.mutex);
  if (program.abandoned) return std::nullopt;
  return program.value;
}

// Waits for the program's end, at most so long. True when it runs on.
bool RunsOn(ipc::client& program, boost::chrono::milliseconds patience) {
  const auto deadline = boost::chrono::steady_clock::now() + patience;
  MutexLock lock(program.mutex);
  while (program.state == ipc::State::Running) {
    if (program.changed.WaitUntil(program.mutex, deadline)) break;
  }
  return program.state == ipc::State::Running;
}

bool HasFailed(ipc::client& program) {
  MutexLock lock(program.mutex);
  return program.state == ipc::State::Failed;
}

// Reads until the program has ended, or memory has: what it says goes to the log only.
void ReadOutput(ipc::client& program, std::vector<std::string>& lines) {
  try {
    std::size_t left = kMaxTransferOutput;
    for (std::string line; ReadLine(program, OutputStream::Output, line);) {
      const std::size_t length = line.size() + 1;  // with its line feed
      // Copied, as a line's memory may be that of all the channel keeps.
      if (length <= left) lines.emplace_back(line, 0, kLogLineSize);
      left -= std::min(left, length);
    }
  } catch (const std::bad_alloc&) {
    return;
  }
}

}  // namespace

void NotifyHelper::ReportStatus(std::int32_t profileId, ProfileStatus status) {
  owner_.ReportStatus(profileId, status);
}

bool NotifyHelper::RunTransfer(const std::vector<std::string>& arguments, const std::string& input,
                               std::int32_t& exitValue, std::vector<std::string>& lines) {
  // Once the program runs nothing may fail any more: what became of the message must be known, or
  // it would be sent again.
  ProgramInput preparedInput(input);
  const std::shared_ptr<ipc::client> program = channel_.RunProgram(arguments);
  if (HasFailed(*program)) return false;
  if (!channel_.WriteInput(*program, std::move(preparedInput))) return false;
  if (RunsOn(*program, patience)) {
    HostLog(kModuleId, host_, LogLevel::Warning,
            "The transfer to %s has been running for 10 minutes. All other mail waits for its end, "
            "for which MaxTransferSeconds can set a limit",
            arguments.back().c_str());
  }
  ReadOutput(*program, lines);
  const std::optional<std::uint32_t> raw = WaitForEnd(*program);
  if (!raw) {
    wasAbandoned_ = true;
    return false;
  }
  exitValue = static_cast<std::int32_t>(((*raw << 8) & 0xFFFFu) | ((*raw >> 8) & 0xFFu));
  return true;
}

std::int64_t NotifyHelper::Now() {
  const std::uint32_t tick = TickNow();
  now_ += static_cast<std::uint32_t>(tick - tick_);
  tick_ = tick;
  return now_;
}

}  // namespace tvx
