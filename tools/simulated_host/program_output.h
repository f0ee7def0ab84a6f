// What an external program writes, read while it runs.
//
// Threads: Read and the destructor on one thread; Kill from any.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "base/mutex.h"

namespace tvx::tool {

class ProgramOutput {
 public:
  // Starts the program, looked for in PATH; its errors go where this process's go. Throws
  // std::system_error when it cannot be started.
  explicit ProgramOutput(const std::vector<std::string>& command);
  // Kills what still runs, and waits for it.
  ~ProgramOutput();
  ProgramOutput(const ProgramOutput&) = delete;
  ProgramOutput& operator=(const ProgramOutput&) = delete;

  // Waits for output; how many bytes there are, 0 at the end.
  std::size_t Read(void* room, std::size_t size);

  // Ends the program, so that a Read under way comes to an end.
  void Kill() EXCLUDES(mutex_);

  // Waits for the end. True when the program ended well, or was killed by Kill.
  bool EndedWell() EXCLUDES(mutex_);

 private:
  int output_ = -1;  // the reading end
  Mutex mutex_;
  pid_t pid_ GUARDED_BY(mutex_) = -1;  // -1: reaped
  bool killed_ GUARDED_BY(mutex_) = false;
};

// All that a program writes; empty when it cannot be started.
std::string ReadProgramOutput(const std::vector<std::string>& command);

}  // namespace tvx::tool
