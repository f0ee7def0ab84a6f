// Calls a function at a steady pace on a thread of its own.
//
// Owns:    the thread, which ends with this object; a call that is under way is waited for.
// Threads: the function runs on the own thread only.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <thread>

namespace tvx::tool {

class Ticker {
 public:
  Ticker(std::chrono::milliseconds interval, std::function<void()> tick);
  ~Ticker();
  Ticker(const Ticker&) = delete;
  Ticker& operator=(const Ticker&) = delete;

 private:
  void AwaitNext();

  const std::chrono::milliseconds interval_;
  const std::function<void()> tick_;
  boost::asio::io_context context_;
  boost::asio::steady_timer timer_;
  std::thread thread_;
};

}  // namespace tvx::tool
