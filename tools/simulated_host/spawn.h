// Starting external programs with pipes.
//
// Threads: any.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tvx::tool {

// Both ends of a pipe, closed unless taken. Neither end reaches other programs.
class PipeEnds {
 public:
  PipeEnds() = default;
  ~PipeEnds();
  PipeEnds(const PipeEnds&) = delete;
  PipeEnds& operator=(const PipeEnds&) = delete;

  // False, with errno, when no pipe can be made.
  bool Open();
  int Reading() const { return ends_[0]; }
  int Writing() const { return ends_[1]; }
  // The end is the caller's to close.
  int TakeReading();
  int TakeWriting();

 private:
  int ends_[2] = {-1, -1};
};

// What a program has for its standard input, output and errors; stays the caller's.
struct StandardPipes {
  int input;
  int output;
  int errors;
};

enum class Lookup { AsGiven, InPath };

// Starts a program; 0 or its errno. The program heads a process group of its own and has no signal
// blocked.
int Spawn(pid_t& pid, const std::vector<std::string>& arguments, const StandardPipes& pipes,
          Lookup lookup = Lookup::AsGiven);

}  // namespace tvx::tool
