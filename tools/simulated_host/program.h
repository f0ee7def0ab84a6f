// One external program of the plug-in: started with three pipes, fed, read and reaped.
//
// Owns:    its side of the pipes; the process until it is reaped, killing it when destroyed before.
// Threads: the event loop's only.
// Limits:  none on input: what the program does not take yet is kept.
// Errors:  a program that cannot be started gives its errno. One that closes its input early loses
//          what was still to come, as in any shell pipeline.
#pragma once

#include <sys/types.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/host_records.h"

namespace tvx::tool {

class Program : public std::enable_shared_from_this<Program> {
 public:
  // Reports to the plug-in, called on the event loop.
  struct Reports {
    // Output (kind 1) or errors (kind 2): a whole chunk, whose header is filled in.
    std::function<void(const void* chunk, std::uint32_t size)> output;
    // The end: the wait status and how long the program ran. Called once, last.
    std::function<void(int waitStatus, double seconds)> ended;
  };

  Program(boost::asio::io_context& loop, std::uint32_t request, Reports reports);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // Starts the program; 0 or its errno. Reports follow only after Run.
  int Start(const std::vector<std::string>& arguments);

  // Begins to read the program's output.
  void Run();

  // Queues bytes for standard input; it is closed behind the last ones.
  void Feed(std::string bytes, bool last);

  // Looks whether the program has ended: called after each SIGCHLD.
  void Reap();

  // Both take those along that the program started. The end is reported as always.
  void Terminate();
  void Kill();

 private:
  using Pipe = boost::asio::posix::stream_descriptor;

  struct OutputPipe {
    OutputPipe(boost::asio::io_context& loop, std::uint32_t chunkKind)
        : pipe(loop), kind(chunkKind) {}
    Pipe pipe;
    const std::uint32_t kind;
    std::array<char, kMaxChunkSize> chunk;
  };

  void ReadSome(OutputPipe& output);
  void WriteNext();
  void EndInput();
  void EndWhenDone();

  const std::uint32_t request_;
  Reports reports_;
  Pipe input_;
  std::deque<std::string> unwritten_;
  bool inputEnds_ = false;  // nothing follows what is unwritten
  OutputPipe output_;
  OutputPipe errors_;
  boost::asio::steady_timer drainTimer_;
  std::chrono::steady_clock::time_point started_;
  pid_t pid_ = -1;  // -1: not started, or reaped
  int waitStatus_ = 0;
  bool running_ = false;  // started, and its end not reported
};

}  // namespace tvx::tool
