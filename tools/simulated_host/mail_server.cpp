#include "simulated_host/mail_server.h"

#include <signal.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <system_error>
#include <utility>

#include "simulated_host/program.h"

namespace tvx::tool {
namespace {

constexpr std::chrono::seconds kStartLimit{15};
constexpr std::chrono::seconds kEndLimit{5};  // until SIGTERM is followed by SIGKILL

// As much of what a server complains about as a person reads.
constexpr std::size_t kMaxComplaints = 500;

}  // namespace

MailServer::MailServer(boost::asio::io_context& loop, Timeline& timeline, std::string command,
                       std::string folder)
    : loop_(loop), timeline_(timeline), command_(std::move(command)), folder_(std::move(folder)) {}

bool MailServer::Up() {
  if (command_.empty() || CurrentState() == State::Up) return true;
  timeline_.Record(MailServerChange{MailServerChange::What::Starting});
  SetState(State::Starting);
  boost::asio::post(loop_, [this] { Start(); });
  const State state = AwaitOtherThan(State::Starting, kStartLimit);
  if (state == State::Up) {
    timeline_.Record(MailServerChange{MailServerChange::What::Up});
  } else if (state == State::Starting) {
    timeline_.Record(Fault{"the mail server has not written a line to say that it is up"});
  }
  return state == State::Up;
}

void MailServer::Down() {
  const State before = CurrentState();
  if (before == State::Down) return;
  boost::asio::post(loop_, [this] {
    terminating_ = true;
    if (program_) program_->Signal(SIGTERM);
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
  reports.output = [this](const ProgramOutput& output) {
    TakeOutput(output);
    return true;
  };
  reports.ended = [this](int, double) { Ended(complaints_); };
  program_ = std::make_shared<Program>(loop_, 0, std::move(reports));
  if (const int error =
          program_->Start({"/bin/sh", "-c", "cd \"$0\" || exit; " + command_, folder_})) {
    return Ended(std::generic_category().message(error));
  }
  program_->Feed({}, true);
  program_->Run();
}

void MailServer::TakeOutput(const ProgramOutput& output) {
  const std::string_view text = output.Text();
  if (output.header.kind == chunk_kind::kErrors) {
    complaints_.append(text.substr(0, kMaxComplaints - complaints_.size()));
  } else if (text.find('\n') != text.npos) {
    SetState(State::Up);
  }
}

void MailServer::Ended(std::string complaints) {
  program_.reset();
  if (CurrentState() == State::Starting) {
    while (!complaints.empty() && complaints.back() == '\n') complaints.pop_back();
    timeline_.Record(Fault{"the mail server did not come up: " + complaints});
  } else if (!terminating_) {
    timeline_.Record(MailServerChange{MailServerChange::What::Ended});
  }
  SetState(State::Down);
}

void MailServer::Kill() {
  if (program_) program_->Signal(SIGKILL);
}

void MailServer::SetState(State state) {
  MutexLock lock(mutex_);
  state_ = state;
  changed_.NotifyAll();
}

MailServer::State MailServer::AwaitOtherThan(State state, std::chrono::seconds limit) {
  const auto end = boost::chrono::steady_clock::now() + boost::chrono::seconds(limit.count());
  MutexLock lock(mutex_);
  while (state_ == state && boost::chrono::steady_clock::now() < end) {
    changed_.WaitUntil(mutex_, end);
  }
  return state_;
}

}  // namespace tvx::tool
