#include "simulated_host/event_loop.h"

#include <signal.h>

#include <initializer_list>
#include <utility>

namespace tvx::tool {
namespace {

void Mask(int how, std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  pthread_sigmask(how, &set, nullptr);
}

}  // namespace

EventLoop::EventLoop()
    : work_(boost::asio::make_work_guard(context_)), signals_(context_, SIGINT, SIGTERM) {
  Mask(SIG_BLOCK, {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD, SIGPIPE});
  // nohup means what it says.
  for (const int signal : {SIGHUP, SIGQUIT}) {
    struct sigaction now {};
    sigaction(signal, nullptr, &now);
    if (now.sa_handler != SIG_IGN) signals_.add(signal);
  }
}

EventLoop::~EventLoop() {
  Stop();
}

void EventLoop::Start(std::function<void()> onStop) {
  onStop_ = std::move(onStop);
  AwaitSignal();
  thread_ = std::thread([this] {
    Mask(SIG_UNBLOCK, {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD});
    context_.run();
  });
}

void EventLoop::Stop() {
  context_.stop();
  if (thread_.joinable()) thread_.join();
}

void EventLoop::AwaitSignal() {
  signals_.async_wait([this](const boost::system::error_code& error, int) {
    if (error) return;
    onStop_();
    AwaitSignal();
  });
}

}  // namespace tvx::tool
