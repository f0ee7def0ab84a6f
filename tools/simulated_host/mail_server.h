// The host's mail server, which a scenario can take away and bring back.
//
// Runs a shell command in a process group of its own. It counts as up once
// it has written its first line on standard output; what it writes later is dropped.
//
// Owns:    the processes of the command, until it is down.
// Threads: Up and Down from the thread of the steps, while the event loop runs. The rest happens on
//          the loop.
// Errors:  a command that ends, or stays silent too long, instead of coming up is recorded as a
//          fault.
#pragma once

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <memory>
#include <string>

#include "base/mutex.h"
#include "simulated_host/timeline.h"

namespace tvx::tool {

class Program;
struct ProgramOutput;

class MailServer {
 public:
  // Both references must outlive this object. The command runs in the folder; when it is empty,
  // there is none.
  MailServer(boost::asio::io_context& loop, Timeline& timeline, std::string command,
             std::string folder);
  MailServer(const MailServer&) = delete;
  MailServer& operator=(const MailServer&) = delete;

  // Waits until it is up; false when it does not come up. Nothing when it is up already.
  bool Up() EXCLUDES(mutex_);
  // SIGTERM to the group, SIGKILL when that does not help, and waits for the end.
  void Down() EXCLUDES(mutex_);

  // On the event loop: ends it at once.
  void Kill();

 private:
  enum class State { Down, Starting, Up };

  void Start();
  void TakeOutput(const ProgramOutput& output);
  void Ended(std::string complaints);
  void SetState(State state) EXCLUDES(mutex_);
  State CurrentState() EXCLUDES(mutex_) { return AwaitOtherThan(State::Down, {}); }
  // The state that Starting or Up was left for, or the old one when that took too long.
  State AwaitOtherThan(State state, std::chrono::seconds limit) EXCLUDES(mutex_);

  boost::asio::io_context& loop_;
  Timeline& timeline_;
  const std::string command_;
  const std::string folder_;
  std::shared_ptr<Program> program_;  // on the loop
  std::string complaints_;            // on the loop: the beginning of its standard error
  bool terminating_ = false;          // on the loop: it is being taken down

  Mutex mutex_;
  ConditionVariable changed_;
  State state_ GUARDED_BY(mutex_) = State::Down;
};

}  // namespace tvx::tool
