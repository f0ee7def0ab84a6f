// The process channel: how the plug-in has the host run external programs.
//
// The plug-in sends chunks through the host service entry (launch, standard input); the host
// answers through IOCTL 4 (running, failed, output, finished). Wire format: ChunkHeader and
// payload.
//
// Owns:    the table of programs that have not ended; each program is shared with its caller.
// Threads: all operations may be called from any thread. Reports arrive on host threads while
//          another thread waits inside RunProgram or ReadLine.
// Locks:   the channel's mutex, then a program's own; never the other way round. RunProgram holds
//          the channel's mutex while it sends the launch, and waits without it; input is sent
//          without any lock.
// Errors:  results, never exceptions but memory exhaustion.
#pragma once

#include <boost/chrono/system_clocks.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "host/host_records.h"
#include "host/ipc_client.h"

namespace tvx {

// A chunk until it is sent.
struct FreeChunk {
  void operator()(void* chunk) const { std::free(chunk); }
};
using ChunkMemory = std::unique_ptr<void, FreeChunk>;

// What a program is to read on its standard input, in chunks that are ready to be sent: once the
// program runs and waits for it, no memory is needed that might not be there.
// Threads: its owner's.
class ProgramInput {
 public:
  // In as many chunks as needed; no bytes are one empty chunk.
  explicit ProgramInput(std::string_view bytes);

 private:
  friend class ProcessChannel;
  std::vector<ChunkMemory> chunks_;
};

class ProcessChannel {
 public:
  // Takes one chunk (malloc'ed; the receiver's from then on, also when it answers false).
  using Sender = std::function<bool(void* chunk, std::uint32_t size)>;

  // Installs the sender, none if it is empty; the previous one is destroyed after the exchange.
  void Register(std::uint32_t module, Sender sender) EXCLUDES(mutex_);

  // Launches a program and waits until the host reports it running, failed or finished, however
  // long that takes; Close ends the wait. The first argument is the program's path. The launch has
  // failed when the returned client is in state Failed; an argument that holds a NUL byte, which
  // separates arguments on the wire, fails too. After an exception no program has been launched.
  std::shared_ptr<ipc::client> RunProgram(const std::vector<std::string>& arguments)
      EXCLUDES(mutex_);

  // Sends this to the program's standard input. False when the host refused a chunk: the program,
  // which would wait for it for ever, is then forgotten and counts as failed.
  bool WriteInput(ipc::client& program, ProgramInput input) EXCLUDES(mutex_);

  // Takes one report of the host. False when it was ignored: no such program, or no such kind.
  bool Receive(const void* chunk, std::uint32_t length) EXCLUDES(mutex_);

  // Ends every wait: running programs count as finished with value 0, requested launches as failed.
  // From then on every launch fails at once.
  void Close() EXCLUDES(mutex_);
  bool IsClosed() EXCLUDES(mutex_);

 private:
  bool ChooseRequest(std::uint32_t& request) const REQUIRES(mutex_);

  Mutex mutex_;
  std::shared_ptr<const Sender> sender_ GUARDED_BY(mutex_);
  std::uint32_t module_ GUARDED_BY(mutex_) = 0;
  std::map<std::uint32_t, std::shared_ptr<ipc::client>> pending_ GUARDED_BY(mutex_);
  bool closed_ GUARDED_BY(mutex_) = false;
  std::uint32_t lastRequest_ GUARDED_BY(mutex_) = 0;
};

enum class OutputStream { Output = 1, Errors = 2 };

// Waits for the next line of a program's output or errors, until a time if one is given. The last
// line may lack its line feed. False once the program is no longer running and everything has been
// read, or when the time has come.
using Deadline = boost::chrono::steady_clock::time_point;
bool ReadLine(ipc::client& program, OutputStream stream, std::string& line,
              Deadline deadline = Deadline::max());

// The channel of this library: one per process, as the host sees it.
ProcessChannel& TheProcessChannel();

}  // namespace tvx
