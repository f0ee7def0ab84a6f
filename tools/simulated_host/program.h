// One external program: started with three pipes, fed, read and reaped.
//
// It heads a process group of its own and has no signal blocked: Ctrl-C at the terminal is for the
// host, which then stops its programs itself.
//
// Owns:    its side of the pipes; the process until it is reaped, killing it when destroyed before.
// Threads: the event loop's only. A thread of the process must take SIGCHLD.
// Limits:  none on input: what the program does not take yet is kept.
// Errors:  a program that cannot be started gives its errno. One that closes its input early loses
//          what was still to come, as in any shell pipeline.
#pragma once

#include <sys/types.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_records.h"

namespace tvx::tool {

// What a program has written, behind the header of the chunk that it is for the plug-in.
struct ProgramOutput {
  const ChunkHeader& header;
  std::string_view Text() const {
    return {reinterpret_cast<const char*>(&header + 1), header.size - sizeof(header)};
  }
};

class Program : public std::enable_shared_from_this<Program> {
 public:
  // Called on the event loop.
  struct Reports {
    // False: no more of this pipe until ReadOn.
    std::function<bool(const ProgramOutput& output)> output;
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
  void ReadOn();

  // Queues bytes for standard input; it is closed behind the last ones.
  void Feed(std::string bytes, bool last);

  // Sends the signal to it and to those that it started. The end is reported as always.
  void Signal(int signal);

 private:
  using Pipe = boost::asio::posix::stream_descriptor;

  struct OutputPipe {
    OutputPipe(boost::asio::io_context& loop, std::uint32_t chunkKind)
        : pipe(loop), kind(chunkKind) {}
    Pipe pipe;
    const std::uint32_t kind;
    bool held = false;  // until ReadOn
    alignas(ChunkHeader) std::array<char, kMaxChunkSize> chunk;
  };

  void ReadSome(OutputPipe& output);
  void WriteNext();
  void EndInput();
  void AwaitEnd();
  void LimitDrain();
  void EndWhenDone();

  const std::uint32_t request_;
  Reports reports_;
  Pipe input_;
  std::deque<std::string> unwritten_;
  bool inputEnds_ = false;  // nothing follows what is unwritten
  OutputPipe output_;
  OutputPipe errors_;
  boost::asio::signal_set childEnds_;
  boost::asio::steady_timer drainTimer_;
  std::chrono::steady_clock::time_point started_;
  pid_t pid_ = -1;  // -1: not started, or reaped
  int waitStatus_ = 0;
  bool running_ = false;  // started, and its end not reported
};

// Waits for all that a program writes to its standard output; empty when it cannot be started.
std::string OutputOf(const std::vector<std::string>& arguments);

}  // namespace tvx::tool
