// Programs, as a fake host runs them: a scripted output and end for each launch, reported on a
// thread of its own as the real host does.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/fake_host.h"

namespace tvx::test {

using Arguments = std::vector<std::string>;

struct ProgramEnd {
  std::uint32_t rawStatus = 0;  // as wait() gives it: an exit code in the second byte
  std::string output;
  bool fails = false;   // to start
  bool runsOn = false;  // reports nothing more until the channel is closed
};

class FakePrograms {
 public:
  // Takes the host's chunks; delivers reports through the callable.
  FakePrograms(FakeHost& host, std::function<void(const std::string& chunk)> deliver);
  ~FakePrograms();
  FakePrograms(const FakePrograms&) = delete;
  FakePrograms& operator=(const FakePrograms&) = delete;

  // Decides what becomes of a launch; called on the program's thread. The default ends well.
  void OnRun(std::function<ProgramEnd(const Arguments&)> run);

  std::vector<Arguments> Launches() const;

 private:
  void Run(std::uint32_t request, const Arguments& arguments);

  const std::function<void(const std::string&)> deliver_;
  mutable std::mutex mutex_;
  std::function<ProgramEnd(const Arguments&)> run_;
  std::vector<Arguments> launches_;
  std::vector<std::thread> threads_;
  FakeHost& host_;
};

}  // namespace tvx::test
