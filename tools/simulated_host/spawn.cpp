#include "simulated_host/spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <utility>

namespace tvx::tool {
namespace {

// What posix_spawn is told besides the arguments.
class SpawnSettings {
 public:
  explicit SpawnSettings(const StandardPipes& pipes) {
    posix_spawn_file_actions_init(&files_);
    posix_spawn_file_actions_adddup2(&files_, pipes.input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files_, pipes.output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files_, pipes.errors, STDERR_FILENO);
    posix_spawnattr_init(&attributes_);
    // Signals that this process blocks are the program's own business again, and its group is its
    // own: Ctrl-C at the terminal is for the host, which then stops its programs itself.
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    posix_spawnattr_setpgroup(&attributes_, 0);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  }
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&files_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  int Spawn(pid_t& pid, const std::vector<std::string>& arguments, Lookup lookup) const {
    std::vector<char*> words;
    words.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
      words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    const auto spawn = lookup == Lookup::InPath ? posix_spawnp : posix_spawn;
    return spawn(&pid, words[0], &files_, &attributes_, words.data(), environ);
  }

 private:
  posix_spawn_file_actions_t files_;
  posix_spawnattr_t attributes_;
};

}  // namespace

PipeEnds::~PipeEnds() {
  for (const int end : ends_) {
    if (end >= 0) close(end);
  }
}

bool PipeEnds::Open() {
  return pipe2(ends_, O_CLOEXEC) == 0;
}

int PipeEnds::TakeReading() {
  return std::exchange(ends_[0], -1);
}

int PipeEnds::TakeWriting() {
  return std::exchange(ends_[1], -1);
}

int Spawn(pid_t& pid, const std::vector<std::string>& arguments, const StandardPipes& pipes,
          Lookup lookup) {
  return SpawnSettings(pipes).Spawn(pid, arguments, lookup);
}

}  // namespace tvx::tool
