// One thread that waits for everything the host waits for: signals, programs, deadlines.
//
// Signals: this thread alone takes SIGINT, SIGTERM, SIGHUP, SIGQUIT and SIGCHLD, and none SIGPIPE:
//          writing to a program that has closed its input is an error here, not the end of the host.
//          They are blocked in the thread that makes the loop, for good, and so in all that it
//          starts later.
// Threads: create it before any other thread. Callbacks run on the loop's thread.
#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <functional>
#include <thread>

namespace tvx::tool {

class EventLoop {
 public:
  EventLoop();
  // Stops the loop and waits for its thread. What was to run on it is dropped.
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  boost::asio::io_context& Context() { return context_; }

  // Begins to run; onStop is called for each signal but SIGCHLD.
  void Start(std::function<void()> onStop);
  void Stop();

 private:
  void AwaitSignal();

  boost::asio::io_context context_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_;
  boost::asio::signal_set signals_;
  std::function<void()> onStop_;
  std::thread thread_;
};

}  // namespace tvx::tool
