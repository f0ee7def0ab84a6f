#include "simulated_host/mail_server.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <cstring>
#include <system_error>
#include <utility>

#include "host/host_records.h"
#include "simulated_host/program.h"

namespace tvx::tool {
namespace {

constexpr std::chrono::seconds kStartLimit{15};
constexpr std::chrono::seconds kEndLimit{5};  // until SIGTERM is followed by SIGKILL

// As much of what a server complains about as a person reads.
constexpr std::size_t kMaxComplaints = 500;

constexpr std::uint32_t kOutput = 1;

}  // namespace

MailServer::MailServer(boost::asio::io_context& loop, Timeline& timeline, std::string command)
    : loop_(loop), timeline_(timeline), command_(std::move(command)) {}

MailServer::~MailServer() {
  Kill();
}

bool MailServer::Up() {
  if (command_.empty() || CurrentState() == State::Up) return true;
  timeline_.Record(MailServerChange{MailServerChange::What::Starting});
  SetState(State::Starting);
  boost::asio::post(loop_, [this] { Start(); });
  const State state = AwaitOtherThan(State::Starting, kStartLimit);
  if (state == State::Up) {
    timeline_.Record(MailServerChange{MailServerChange::What::Up});
    return true;
  }
  if (state == State::Starting) {
    timeline_.Record(Fault{"the mail server has not written a line to say that it is up"});
  }
  return false;
}

void MailServer::Down() {
  const State before = CurrentState();
  if (before == State::Down) return;
  boost::asio::post(loop_, [this] {
    terminating_ = true;
    if (program_) program_->Terminate();
  });
  if (AwaitOtherThan(before, kEndLimit) == before) {
    boost::asio::post(loop_, [this] { Kill(); });
    AwaitOtherThan(before, kEndLimit);
  }
  timeline_.Record(MailServerChange{MailServerChange::What::Down});
}

void MailServer::Start() {
  complaints_.clear();
  terminating_ = false;
  Program::Reports reports;
  reports.output = [this](const void* chunk, std::uint32_t size) { TakeOutput(chunk, size); };
  reports.ended = [this](int, double) {
    program_.reset();
    if (CurrentState() == State::Starting) {
      while (!complaints_.empty() && complaints_.back() == '\n') complaints_.pop_back();
      timeline_.Record(Fault{"the mail server did not come up: " + complaints_});
    } else if (!terminating_) {
      timeline_.Record(MailServerChange{MailServerChange::What::Ended});
    }
    SetState(State::Down);
  };
  program_ = std::make_shared<Program>(loop_, 0, std::move(reports));
  const int error = program_->Start({"/bin/sh", "-c", command_});
  if (error != 0) {
    program_.reset();
    timeline_.Record(
        Fault{"the mail server did not come up: " + std::generic_category().message(error)});
    return SetState(State::Down);
  }
  program_->Feed({}, true);
  program_->Run();
}

void MailServer::TakeOutput(const void* chunk, std::uint32_t size) {
  ChunkHeader header{};
  std::memcpy(&header, chunk, sizeof(header));
  const char* text = static_cast<const char*>(chunk) + sizeof(header);
  const std::size_t length = size - sizeof(header);
  if (header.kind != kOutput) {
    complaints_.append(text, std::min(length, kMaxComplaints - complaints_.size()));
  } else if (std::memchr(text, '\n', length) != nullptr && CurrentState() == State::Starting) {
    SetState(State::Up);
  }
}

void MailServer::Reap() {
  // It may be the last owner, and lets go of itself at its end.
  if (const std::shared_ptr<Program> program = program_) program->Reap();
}

void MailServer::Kill() {
  if (program_) program_->Kill();
}

void MailServer::SetState(State state) {
  MutexLock lock(mutex_);
  state_ = state;
  changed_.NotifyAll();
}

MailServer::State MailServer::CurrentState() {
  MutexLock lock(mutex_);
  return state_;
}

MailServer::State MailServer::AwaitOtherThan(State state, std::chrono::milliseconds limit) {
  const auto end = boost::chrono::steady_clock::now() + boost::chrono::milliseconds(limit.count());
  MutexLock lock(mutex_);
  while (state_ == state && boost::chrono::steady_clock::now() < end) {
    changed_.WaitUntil(mutex_, end);
  }
  return state_;
}

}  // namespace tvx::tool
