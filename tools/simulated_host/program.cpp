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

using boost::asio::posix::stream_descriptor;
using boost::system::error_code;

// How long output may still come after the program itself has ended: one that it started may hold
// the pipes open for ever.
constexpr std::chrono::seconds kDrainTime{1};

// Neither end reaches another program: one that held an end would hide that the pipe has ended.
// False with errno.
bool OpenPipe(stream_descriptor& reading, stream_descriptor& writing) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  reading.assign(ends[0]);
  writing.assign(ends[1]);
  return true;
}

// Not Boost.Process, whose children inherit what descriptors the host has open, and whose programs
// that cannot be executed stay zombies.
int Spawn(pid_t& pid, const std::vector<std::string>& arguments, stream_descriptor (&pipes)[3]) {
  std::vector<char*> words;
  words.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) {
    words.push_back(const_cast<char*>(argument.c_str()));
  }
  words.push_back(nullptr);

  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  for (int i = 0; i < 3; ++i) {
    posix_spawn_file_actions_adddup2(&files, pipes[i].native_handle(), i);
  }
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  const int error = posix_spawn(&pid, words[0], &files, &attributes, words.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  return error;
}

}  // namespace

Program::Program(boost::asio::io_context& loop, std::uint32_t request, Reports reports)
    : request_(request),
      reports_(std::move(reports)),
      input_(loop),
      output_(loop, chunk_kind::kOutput),
      errors_(loop, chunk_kind::kErrors),
      childEnds_(loop, SIGCHLD),
      drainTimer_(loop) {}

Program::~Program() {
  if (pid_ < 0) return;
  kill(-pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

int Program::Start(const std::vector<std::string>& arguments) {
  const auto loop = input_.get_executor();
  stream_descriptor theirs[] = {stream_descriptor(loop), stream_descriptor(loop),
                                stream_descriptor(loop)};
  if (!OpenPipe(theirs[0], input_) || !OpenPipe(output_.pipe, theirs[1]) ||
      !OpenPipe(errors_.pipe, theirs[2])) {
    return errno;
  }
  pid_t pid = -1;
  if (const int error = Spawn(pid, arguments, theirs)) return error;
  pid_ = pid;
  started_ = std::chrono::steady_clock::now();
  running_ = true;
  return 0;
}

void Program::Run() {
  AwaitEnd();
  ReadSome(output_);
  ReadSome(errors_);
}

void Program::ReadSome(OutputPipe& output) {
  constexpr std::size_t kHeader = sizeof(ChunkHeader);
  const auto room = boost::asio::buffer(output.chunk.data() + kHeader, kMaxChunkSize - kHeader);
  output.pipe.async_read_some(
      room, [self = shared_from_this(), &output](error_code error, std::size_t length) {
        if (error) {
          output.pipe.close(error);
          return self->EndWhenDone();
        }
        auto& header = reinterpret_cast<ChunkHeader&>(output.chunk);
        header = {static_cast<std::uint32_t>(kHeader + length), self->request_, output.kind, 0};
        output.held = !self->reports_.output({header});
        if (!output.held) self->ReadSome(output);
      });
}

void Program::ReadOn() {
  for (OutputPipe* output : {&output_, &errors_}) {
    if (std::exchange(output->held, false)) ReadSome(*output);
  }
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

void Program::AwaitEnd() {
  if (waitpid(pid_, &waitStatus_, WNOHANG) == pid_) {
    pid_ = -1;
    if (running_) LimitDrain();
    return EndWhenDone();
  }
  childEnds_.async_wait([self = shared_from_this()](const error_code& error, int) {
    if (!error) self->AwaitEnd();
  });
}

void Program::LimitDrain() {
  drainTimer_.expires_after(kDrainTime);
  drainTimer_.async_wait([self = shared_from_this()](error_code error) {
    if (error) return;
    if (self->output_.held || self->errors_.held) return self->LimitDrain();
    self->output_.pipe.close(error);
    self->errors_.pipe.close(error);
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

void Program::Signal(int signal) {
  if (pid_ >= 0) kill(-pid_, signal);
}

std::string OutputOf(const std::vector<std::string>& arguments) {
  boost::asio::io_context loop;
  std::string text;
  const auto take = [&text](const ProgramOutput& output) {
    if (output.header.kind == chunk_kind::kOutput) text += output.Text();
    return true;
  };
  const auto program =
      std::make_shared<Program>(loop, 0, Program::Reports{take, [](int, double) {}});
  if (program->Start(arguments) != 0) return {};
  program->Feed({}, true);
  program->Run();
  loop.run();
  return text;
}

}  // namespace tvx::tool
