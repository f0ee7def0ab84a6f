// What a frame costs beside time. Counts, not times; 256 streams, histories full (10 MiB each).
//
//   allocations   allocations_per_frame of the whole process while frames are pushed
//   memory        bytes_per_frame of heap, allocator overhead included, for each frame held
//   system_calls  processes_killed: frames are pushed in a process that the kernel kills at its
//                 first system call of any kind, so 0 means that there was none
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "support/frame_source.h"
#include "support/run.h"

namespace {

std::uint64_t allocations = 0;  // only one thread runs

}  // namespace

// Stands in for the system's in the whole process, the plug-in included.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) {
  ++allocations;
  return __libc_malloc(size);
}

namespace tvx::bench {
namespace {

constexpr int kStreams = 256;
constexpr int kSizeLimitMb = 10;
constexpr std::uint32_t kFrames = 300'000;

Payloads& ThePayloads() {
  static Payloads payloads;
  return payloads;
}

void Allocations(benchmark::State& state) {
  Plugin plugin;
  FrameSource source(plugin, ThePayloads(), kStreams, kSizeLimitMb);
  source.FillHistories();
  for (auto _ : state) {
    const std::uint64_t before = allocations;
    for (std::uint32_t i = 0; i < kFrames; ++i) source.Push();
    state.counters["allocations_per_frame"] =
        static_cast<double>(allocations - before) / double{kFrames};
  }
}

double HeapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

void Memory(benchmark::State& state) {
  Plugin plugin;
  FrameSource source(plugin, ThePayloads(), kStreams, kSizeLimitMb);
  for (auto _ : state) {
    const double before = HeapBytes();
    const std::uint32_t releasedBefore = plugin.host.FramesReleased();
    source.FillHistories();
    const std::uint32_t held = source.Taken() - (plugin.host.FramesReleased() - releasedBefore);
    state.counters["frames_held"] = held;
    state.counters["bytes_per_frame"] = (HeapBytes() - before) / static_cast<double>(held);
  }
}

// From here on any system call but the one that ends the process kills it.
bool ForbidSystemCalls() {
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
  };
  sock_fprog filter{};
  filter.len = sizeof(steps) / sizeof(steps[0]);
  filter.filter = steps;
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// Runs the work in a process without system calls. True when it was killed for making one.
template <typename Work>
bool IsKilled(const Work& work) {
  const pid_t child = fork();
  if (child == 0) {
    if (!ForbidSystemCalls()) _exit(1);
    work();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status);
}

void SystemCalls(benchmark::State& state) {
  if (!IsKilled([] { syscall(SYS_getppid); })) {
    state.SkipWithError("system calls cannot be forbidden here");
    return;
  }
  Plugin plugin;
  FrameSource source(plugin, ThePayloads(), kStreams, kSizeLimitMb);
  source.FillHistories();
  // The heap comes to its size, too: the allocator fetches from the system what its free pieces do
  // not yet fit.
  for (std::uint32_t i = 0; i < kFrames; ++i) source.Push();
  for (auto _ : state) {
    const bool killed = IsKilled([&] {
      for (std::uint32_t i = 0; i < kFrames; ++i) source.Push();
    });
    state.counters["processes_killed"] = killed ? 1 : 0;
  }
}

}  // namespace
}  // namespace tvx::bench

int main(int argc, char** argv) {
  // A host that has run for a while has its memory; it is not given back to be fetched again.
  mallopt(M_TRIM_THRESHOLD, 64 << 20);
  const auto add = [](const char* name, void (*function)(benchmark::State&)) {
    benchmark::RegisterBenchmark(name, function)->Iterations(1)->Repetitions(1);
  };
  add("allocations", tvx::bench::Allocations);
  add("memory", tvx::bench::Memory);
  add("system_calls", tvx::bench::SystemCalls);
  return tvx::bench::RunCases(argc, argv);
}
