#include "simulated_host/program.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tvx::tool {
namespace {

using boost::system::error_code;

// How long output may still come after the program itself has ended: one that it started may hold
// the pipes open for ever.
constexpr std::chrono::seconds kDrainTime{1};

// Both ends of a pipe, closed unless taken. Neither end reaches other programs.
class PipeEnds {
 public:
  PipeEnds() = default;
  ~PipeEnds() {
    for (const int end : ends_) {
      if (end >= 0) close(end);
    }
  }
  PipeEnds(const PipeEnds&) = delete;
  PipeEnds& operator=(const PipeEnds&) = delete;

  bool Open() { return pipe2(ends_, O_CLOEXEC) == 0; }
  int Reading() const { return ends_[0]; }
  int Writing() const { return ends_[1]; }
  int TakeReading() { return std::exchange(ends_[0], -1); }
  int TakeWriting() { return std::exchange(ends_[1], -1); }

 private:
  int ends_[2] = {-1, -1};
};

// What posix_spawn is told besides the arguments.
class SpawnSettings {
 public:
  SpawnSettings(int input, int output, int errors) {
    posix_spawn_file_actions_init(&files_);
    posix_spawn_file_actions_adddup2(&files_, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files_, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files_, errors, STDERR_FILENO);
    posix_spawnattr_init(&attributes_);
    // Signals that this process blocks are the program's own business again, and its group is its
    // own: Ctrl-C at the terminal is for the host, which then stops its programs itself.
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    posix_spawnattr_setpgroup(&attributes_, 0);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  }
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&files_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  int Spawn(pid_t& pid, const std::vector<std::string>& arguments) const {
    std::vector<char*> words;
    words.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
      words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    return posix_spawn(&pid, words[0], &files_, &attributes_, words.data(), environ);
  }

 private:
  posix_spawn_file_actions_t files_;
  posix_spawnattr_t attributes_;
};

}  // namespace

Program::Program(boost::asio::io_context& loop, std::uint32_t request, Reports reports)
    : request_(request),
      reports_(std::move(reports)),
      input_(loop),
      output_(loop, 1),
      errors_(loop, 2),
      drainTimer_(loop) {}

Program::~Program() {
  if (pid_ < 0) return;
  kill(-pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

int Program::Start(const std::vector<std::string>& arguments) {
  PipeEnds input, output, errors;
  if (!input.Open() || !output.Open() || !errors.Open()) return errno;
  const SpawnSettings settings(input.Reading(), output.Writing(), errors.Writing());
  const int error = settings.Spawn(pid_, arguments);
  if (error != 0) {
    pid_ = -1;
    return error;
  }
  started_ = std::chrono::steady_clock::now();
  running_ = true;
  input_.assign(input.TakeWriting());
  input_.non_blocking(true);
  output_.pipe.assign(output.TakeReading());
  errors_.pipe.assign(errors.TakeReading());
  return 0;
}

void Program::Run() {
  ReadSome(output_);
  ReadSome(errors_);
}

void Program::ReadSome(OutputPipe& output) {
  constexpr std::size_t kHeader = sizeof(ChunkHeader);
  const auto room = boost::asio::buffer(output.chunk.data() + kHeader, kMaxChunkSize - kHeader);
  output.pipe.async_read_some(
      room, [self = shared_from_this(), &output](const error_code& error, std::size_t length) {
        if (error) {
          error_code ignored;
          output.pipe.close(ignored);
          self->EndWhenDone();
          return;
        }
        const auto size = static_cast<std::uint32_t>(kHeader + length);
        const ChunkHeader header{size, self->request_, output.kind, 0};
        std::memcpy(output.chunk.data(), &header, kHeader);
        self->reports_.output(output.chunk.data(), size);
        self->ReadSome(output);
      });
}

void Program::Feed(std::string bytes, bool last) {
  if (!input_.is_open() || inputEnds_) return;
  inputEnds_ = last;
  const bool writing = !unwritten_.empty();
  if (!bytes.empty()) unwritten_.push_back(std::move(bytes));
  if (!writing) WriteNext();
}

// One write at a time, and never a waiting one: a program that does not read holds nobody up.
void Program::WriteNext() {
  if (unwritten_.empty()) {
    if (inputEnds_) EndInput();
    return;
  }
  boost::asio::async_write(input_, boost::asio::buffer(unwritten_.front()),
                           [self = shared_from_this()](const error_code& error, std::size_t) {
                             if (error) return self->EndInput();
                             self->unwritten_.pop_front();
                             self->WriteNext();
                           });
}

void Program::EndInput() {
  unwritten_.clear();
  error_code ignored;
  input_.close(ignored);
}

void Program::Reap() {
  if (pid_ < 0 || waitpid(pid_, &waitStatus_, WNOHANG) != pid_) return;
  pid_ = -1;
  EndWhenDone();
  if (!running_) return;
  drainTimer_.expires_after(kDrainTime);
  drainTimer_.async_wait([self = shared_from_this()](const error_code& error) {
    error_code ignored;
    if (error) return;
    self->output_.pipe.close(ignored);
    self->errors_.pipe.close(ignored);
    self->EndWhenDone();
  });
}

// The end is reported behind all output.
void Program::EndWhenDone() {
  if (!running_ || pid_ >= 0 || output_.pipe.is_open() || errors_.pipe.is_open()) return;
  running_ = false;
  drainTimer_.cancel();
  EndInput();
  const std::chrono::duration<double> ran = std::chrono::steady_clock::now() - started_;
  reports_.ended(waitStatus_, ran.count());
}

void Program::Kill() {
  if (pid_ >= 0) kill(-pid_, SIGKILL);
}

}  // namespace tvx::tool
