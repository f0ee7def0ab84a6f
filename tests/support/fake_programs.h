// Programs, as a fake host runs them: each launch gets a thread of its own, a scripted output and an
// end, reported as the real host reports them.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/fake_host.h"

namespace tvx::test {

using Arguments = std::vector<std::string>;

// One launched program.
struct Launch {
  std::uint32_t request = 0;
  Arguments arguments;
  operator const Arguments&() const { return arguments; }
};

struct ProgramEnd {
  std::uint32_t rawStatus = 0;  // as wait() gives it: an exit code in the second byte
  std::string output;
  bool fails = false;   // to start
  bool runsOn = false;  // reports nothing more until the channel is closed
};

class FakePrograms {
 public:
  // Takes the host's chunks; delivers reports through the callable. Programs have ended when the
  // object has.
  FakePrograms(FakeHost& host, std::function<void(const std::string& chunk)> deliver);
  ~FakePrograms();
  FakePrograms(const FakePrograms&) = delete;
  FakePrograms& operator=(const FakePrograms&) = delete;

  // Decides what becomes of a launch; called on the program's thread. The default ends well.
  void OnRun(std::function<ProgramEnd(const Launch&)> run);

  // For the program's thread: reports the start and waits for standard input, all that has come by
  // then. Nothing when the programs were ended instead.
  std::optional<std::string> AwaitInput(const Launch& launch);
  // Nobody will give input any more: Close has been called.
  void End();

  std::vector<Arguments> Launches() const;

 private:
  void OnChunk(const SentChunk& chunk);
  void Run(const Launch& launch);

  FakeHost& host_;
  const std::function<void(const std::string&)> deliver_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::function<ProgramEnd(const Launch&)> run_;
  std::vector<Arguments> launches_;
  std::map<std::uint32_t, std::string> input_;  // of each request
  bool ended_ = false;
  std::map<std::uint32_t, std::thread> threads_;  // of each request
  std::vector<std::uint32_t> finished_;           // requests whose threads can be joined
};

}  // namespace tvx::test
