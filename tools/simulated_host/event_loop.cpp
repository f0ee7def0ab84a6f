#include "simulated_host/event_loop.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace tvx::tool {
namespace {

int BlockSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGCHLD);
  const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  // Writing to a program that has closed its input is an error here, not the end of the host.
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return descriptor;
}

}  // namespace

EventLoop::EventLoop()
    : work_(boost::asio::make_work_guard(context_)), signals_(context_, BlockSignals()) {}

EventLoop::~EventLoop() {
  Stop();
}

void EventLoop::Start(std::function<void(int)> onSignal) {
  onSignal_ = std::move(onSignal);
  AwaitSignal();
  thread_ = std::thread([this] { context_.run(); });
}

void EventLoop::Stop() {
  context_.stop();
  if (thread_.joinable()) thread_.join();
}

void EventLoop::AwaitSignal() {
  signals_.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                      [this](const boost::system::error_code& error) {
                        if (error) return;
                        signalfd_siginfo info{};
                        while (read(signals_.native_handle(), &info, sizeof(info)) ==
                               static_cast<ssize_t>(sizeof(info))) {
                          onSignal_(static_cast<int>(info.ssi_signo));
                        }
                        AwaitSignal();
                      });
}

}  // namespace tvx::tool
