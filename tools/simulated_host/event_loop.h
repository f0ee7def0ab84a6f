// One thread that waits for everything the host waits for: signals, programs, deadlines.
//
// Signals: blocks SIGINT, SIGTERM, SIGCHLD and SIGPIPE in the calling thread, so that every thread
//          started later has them blocked too. The mask stays.
// Threads: create it before any other thread. Callbacks run on the loop's thread.
#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
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

  // Begins to run; onSignal gets SIGINT, SIGTERM and SIGCHLD.
  void Start(std::function<void(int signal)> onSignal);
  void Stop();

 private:
  void AwaitSignal();

  boost::asio::io_context context_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_;
  boost::asio::posix::stream_descriptor signals_;
  std::function<void(int)> onSignal_;
  std::thread thread_;
};

}  // namespace tvx::tool
