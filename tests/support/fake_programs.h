// Programs, as a fake host runs them: each launch gets a thread of its own, a scripted output and an
// end, reported as the real host reports them.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/process_channel.h"
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
  // Takes the host's chunks; delivers reports through the callable, or to a channel, which sends to
  // the host from then on. Programs have ended when the object has.
  FakePrograms(FakeHost& host, std::function<void(const std::string& chunk)> deliver)
      : host_(host), deliver_(std::move(deliver)) {
    host.OnChunk([this](const SentChunk& chunk) { OnChunk(chunk); });
  }
  FakePrograms(FakeHost& host, ProcessChannel& channel)
      : FakePrograms(host, [&channel](const std::string& chunk) {
          channel.Receive(chunk.data(), static_cast<std::uint32_t>(chunk.size()));
        }) {
    channel.Register(kModuleId, &FakeHost::SendChunk);
  }
  ~FakePrograms() {
    End();
    host_.OnChunk(nullptr);
    for (auto& [request, thread] : threads_) thread.join();
  }

  // Decides what becomes of a launch; called on the program's thread. The default ends well.
  void OnRun(std::function<ProgramEnd(const Launch&)> run) {
    const std::lock_guard<std::mutex> lock(mutex_);
    run_ = std::move(run);
  }

  // For the program's thread: reports the start and waits for standard input, all that has come by
  // then. Nothing when the programs were ended instead.
  std::optional<std::string> AwaitInput(const Launch& launch) {
    deliver_(MakeReport(launch.request, chunk_kind::kRunning, 1));
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return ended_ || input_.count(launch.request) != 0; });
    const auto input = input_.find(launch.request);
    if (input == input_.end()) return std::nullopt;
    return input->second;
  }
  // Nobody will give input any more: Close has been called.
  void End() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    changed_.notify_all();
  }

  std::vector<Arguments> Launches() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return launches_;
  }

 private:
  void OnChunk(const SentChunk& chunk) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (chunk.kind == chunk_kind::kInput) {
      input_[chunk.request] += chunk.payload;
      changed_.notify_all();
    } else if (chunk.kind == chunk_kind::kLaunch) {
      // A 32-bit process has room for some hundred stacks.
      for (const std::uint32_t request : std::exchange(finished_, {})) {
        threads_.at(request).join();
        threads_.erase(request);
      }
      Launch launch{chunk.request, {}};
      std::istringstream words(chunk.payload + '\0');
      for (std::string word; std::getline(words, word, '\0');) launch.arguments.push_back(word);
      launches_.push_back(launch.arguments);
      threads_.emplace(chunk.request, std::thread(&FakePrograms::Run, this, launch));
    }
  }

  void Run(const Launch& launch) {
    const auto run = [this] {
      const std::lock_guard<std::mutex> lock(mutex_);
      return run_;
    }();
    const ProgramEnd end = run ? run(launch) : ProgramEnd{};
    const auto report = [&](std::uint32_t kind, std::uint32_t word, const std::string& text = {}) {
      deliver_(MakeReport(launch.request, kind, word, text));
    };
    report(end.fails ? chunk_kind::kFailed : chunk_kind::kRunning, end.fails ? 2 : 1);
    if (!end.fails && !end.runsOn) {
      if (!end.output.empty()) report(chunk_kind::kOutput, 0, end.output);
      report(chunk_kind::kFinished, end.rawStatus);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    finished_.push_back(launch.request);
  }

  FakeHost& host_;
  const std::function<void(const std::string&)> deliver_;
  mutable std::mutex mutex_;  // of all below
  std::condition_variable changed_;
  std::function<ProgramEnd(const Launch&)> run_;
  std::vector<Arguments> launches_;
  std::map<std::uint32_t, std::string> input_;  // of each request
  bool ended_ = false;
  std::map<std::uint32_t, std::thread> threads_;  // of each request
  std::vector<std::uint32_t> finished_;           // requests whose threads can be joined
};

}  // namespace tvx::test
