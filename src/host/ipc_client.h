// One external program that the host runs for the plug-in.
//
// Owns:    what the program wrote and nobody has read yet.
// Threads: any, under its own mutex. The channel's mutex, when needed too, is taken first.
// Limits:  kMaxUnreadOutput bytes per stream (base/input_limits.h), so that an endlessly talking
//          program cannot eat the host's memory.
// Not here: starting programs and routing their reports (process_channel.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/mutex.h"

namespace tvx {
namespace ipc {

// Bytes of one output stream, taken out line by line. Not locked: its client's mutex covers it.
class LineBuffer {
 public:
  // What is beyond the limit, or finds no memory, is dropped.
  void Append(const char* bytes, std::size_t length) noexcept;

  // Takes the next line, without its line feed and without a carriage return before that.
  // False when no whole line is there.
  bool TakeLine(std::string& line);

  // Takes what is left, line feed or not. False when nothing is.
  bool TakeRest(std::string& rest);

 private:
  void Consume(std::size_t end);

  std::string bytes_;
  std::size_t start_ = 0;    // bytes before it are read
  std::size_t scanned_ = 0;  // no line feed between start_ and it
};

enum class State : std::int32_t {
  Failed = -1,  // the launch failed
  Requested = 0,
  Running = 1,
  Finished = 2,
};

struct client {
  Mutex mutex;
  ConditionVariable changed;  // notified on every report about this program
  State state GUARDED_BY(mutex) = State::Requested;
  // The word of the last state report: exit status when finished, error when failed.
  std::uint32_t value GUARDED_BY(mutex) = 0;
  // Finished only because the channel was closed: nobody knows what became of the program.
  bool abandoned GUARDED_BY(mutex) = false;
  LineBuffer output GUARDED_BY(mutex);
  LineBuffer errors GUARDED_BY(mutex);
  // Key in the table of pending programs. Written once, before the program can report.
  std::uint32_t request = 0;

  bool IsRunning() EXCLUDES(mutex) {
    MutexLock lock(mutex);
    return state == State::Running;
  }
};

}  // namespace ipc
}  // namespace tvx
