#include "support/fake_programs.h"

#include <utility>

namespace tvx::test {
namespace {

Arguments Split(const std::string& description) {
  Arguments arguments(1);
  for (const char c : description) {
    if (c == '\0') {
      arguments.emplace_back();
    } else {
      arguments.back().push_back(c);
    }
  }
  return arguments;
}

}  // namespace

FakePrograms::FakePrograms(FakeHost& host, std::function<void(const std::string&)> deliver)
    : deliver_(std::move(deliver)), host_(host) {
  host.OnChunk([this](const SentChunk& chunk) {
    if (chunk.kind != 6) return;
    std::lock_guard<std::mutex> lock(mutex_);
    launches_.push_back(Split(chunk.payload));
    threads_.emplace_back(&FakePrograms::Run, this, chunk.request, launches_.back());
  });
}

FakePrograms::~FakePrograms() {
  host_.OnChunk(nullptr);
  for (std::thread& thread : threads_) thread.join();
}

void FakePrograms::OnRun(std::function<ProgramEnd(const Arguments&)> run) {
  std::lock_guard<std::mutex> lock(mutex_);
  run_ = std::move(run);
}

std::vector<Arguments> FakePrograms::Launches() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return launches_;
}

void FakePrograms::Run(std::uint32_t request, const Arguments& arguments) {
  std::function<ProgramEnd(const Arguments&)> run;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    run = run_;
  }
  const ProgramEnd end = run ? run(arguments) : ProgramEnd{};
  deliver_(MakeReport(request, end.fails ? 4 : 3, end.fails ? 2 : 1));
  if (end.fails || end.runsOn) return;
  if (!end.output.empty()) deliver_(MakeReport(request, 1, 0, end.output));
  deliver_(MakeReport(request, 5, end.rawStatus));
}

}  // namespace tvx::test
