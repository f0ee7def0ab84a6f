#include "simulated_host/program_output.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "simulated_host/spawn.h"

namespace tvx::tool {
namespace {

// A pipe of this size is seconds of video, so that a program that is held up for a moment does not
// hold up who reads. Best effort: the system may allow less.
constexpr int kPipeSize = 1 << 20;

}  // namespace

ProgramOutput::ProgramOutput(const std::vector<std::string>& command) {
  PipeEnds input, output;
  if (!input.Open() || !output.Open()) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  fcntl(output.Reading(), F_SETPIPE_SZ, kPipeSize);
  MutexLock lock(mutex_);
  const int error =
      Spawn(pid_, command, {input.Reading(), output.Writing(), STDERR_FILENO}, Lookup::InPath);
  if (error != 0) throw std::system_error(error, std::generic_category(), command[0]);
  output_ = output.TakeReading();
}

ProgramOutput::~ProgramOutput() {
  Kill();
  EndedWell();
  close(output_);
}

std::size_t ProgramOutput::Read(void* room, std::size_t size) {
  ssize_t length = 0;
  do {
    length = read(output_, room, size);
  } while (length < 0 && errno == EINTR);
  return length < 0 ? 0 : static_cast<std::size_t>(length);
}

void ProgramOutput::Kill() {
  MutexLock lock(mutex_);
  if (pid_ < 0) return;
  killed_ = true;
  kill(-pid_, SIGKILL);
}

bool ProgramOutput::EndedWell() {
  int status = 0;
  siginfo_t end{};
  pid_t pid = -1;
  {
    MutexLock lock(mutex_);
    pid = pid_;
  }
  if (pid < 0) return true;
  // Waited for without the lock, so that Kill can come in, and not yet reaped, so that the
  // identifier stays its own until then.
  while (waitid(P_PID, static_cast<id_t>(pid), &end, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
  }
  MutexLock lock(mutex_);
  waitpid(pid, &status, 0);
  pid_ = -1;
  return killed_ || (WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

std::string ReadProgramOutput(const std::vector<std::string>& command) {
  std::string text;
  try {
    ProgramOutput output(command);
    std::array<char, 4096> bytes{};
    while (const std::size_t length = output.Read(bytes.data(), bytes.size())) {
      text.append(bytes.data(), length);
    }
  } catch (const std::system_error&) {
    text.clear();
  }
  return text;
}

}  // namespace tvx::tool
