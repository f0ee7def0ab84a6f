#include "support/fake_programs.h"

#include <sstream>
#include <utility>

namespace tvx::test {
namespace {

constexpr std::uint32_t kInput = 0;  // kinds of chunks
constexpr std::uint32_t kOutput = 1;
constexpr std::uint32_t kRunning = 3;
constexpr std::uint32_t kFailed = 4;
constexpr std::uint32_t kFinished = 5;
constexpr std::uint32_t kLaunch = 6;

Arguments Split(const std::string& description) {
  Arguments arguments;
  std::istringstream words(description + '\0');
  for (std::string word; std::getline(words, word, '\0');) arguments.push_back(word);
  return arguments;
}

}  // namespace

FakePrograms::FakePrograms(FakeHost& host, std::function<void(const std::string&)> deliver)
    : host_(host), deliver_(std::move(deliver)) {
  host.OnChunk([this](const SentChunk& chunk) { OnChunk(chunk); });
}

FakePrograms::~FakePrograms() {
  End();
  host_.OnChunk(nullptr);
  for (auto& [request, thread] : threads_) thread.join();
}

void FakePrograms::OnChunk(const SentChunk& chunk) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (chunk.kind == kInput) {
    input_[chunk.request] += chunk.payload;
    changed_.notify_all();
  } else if (chunk.kind == kLaunch) {
    // A 32-bit process has room for some hundred stacks.
    for (const std::uint32_t request : std::exchange(finished_, {})) {
      threads_.at(request).join();
      threads_.erase(request);
    }
    launches_.push_back(Split(chunk.payload));
    threads_.emplace(chunk.request, std::thread(&FakePrograms::Run, this,
                                                Launch{chunk.request, launches_.back()}));
  }
}

void FakePrograms::OnRun(std::function<ProgramEnd(const Launch&)> run) {
  const std::lock_guard<std::mutex> lock(mutex_);
  run_ = std::move(run);
}

std::optional<std::string> FakePrograms::AwaitInput(const Launch& launch) {
  deliver_(MakeReport(launch.request, kRunning, 1));
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [&] { return ended_ || input_.count(launch.request) != 0; });
  const auto input = input_.find(launch.request);
  if (input == input_.end()) return std::nullopt;
  return input->second;
}

void FakePrograms::End() {
  const std::lock_guard<std::mutex> lock(mutex_);
  ended_ = true;
  changed_.notify_all();
}

std::vector<Arguments> FakePrograms::Launches() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return launches_;
}

void FakePrograms::Run(const Launch& launch) {
  std::function<ProgramEnd(const Launch&)> run;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    run = run_;
  }
  const ProgramEnd end = run ? run(launch) : ProgramEnd{};
  deliver_(MakeReport(launch.request, end.fails ? kFailed : kRunning, end.fails ? 2 : 1));
  if (!end.fails && !end.runsOn) {
    if (!end.output.empty()) deliver_(MakeReport(launch.request, kOutput, 0, end.output));
    deliver_(MakeReport(launch.request, kFinished, end.rawStatus));
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  finished_.push_back(launch.request);
}

}  // namespace tvx::test
