#include "simulated_host/program.h"

#include <signal.h>
#include <sys/wait.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <cerrno>
#include <cstring>
#include <utility>

#include "simulated_host/spawn.h"

namespace tvx::tool {
namespace {

using boost::system::error_code;

// How long output may still come after the program itself has ended: one that it started may hold
// the pipes open for ever.
constexpr std::chrono::seconds kDrainTime{1};

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
  const int error = Spawn(pid_, arguments, {input.Reading(), output.Writing(), errors.Writing()});
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

void Program::Terminate() {
  if (pid_ >= 0) kill(-pid_, SIGTERM);
}

void Program::Kill() {
  if (pid_ >= 0) kill(-pid_, SIGKILL);
}

}  // namespace tvx::tool
