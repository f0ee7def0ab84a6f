// Frames through the exported Write, on the host's recording path, beside copying their payloads.
//
//   write/N   the next frame of the next of N streams; every history is full (10 MiB), so that a
//             frame in means a frame out
//   copy      memcpy of a payload of 30 KB, each from and to a buffer of its own
//   copy_hot  the same from one payload that is in the cache
#include <cstring>

#include "support/frame_source.h"
#include "support/run.h"

namespace tvx::bench {
namespace {

constexpr int kStreamCounts[] = {1, 16, 256, 1024};
constexpr int kSizeLimitMb = 10;

Payloads& ThePayloads() {
  static Payloads payloads;
  return payloads;
}

void Write(benchmark::State& state, int streams) {
  Plugin plugin;
  FrameSource source(plugin, ThePayloads(), streams, kSizeLimitMb);
  source.FillHistories();
  for (auto _ : state) source.Push();
  if (source.Taken() != source.Pushed()) state.SkipWithError("a frame was refused");
}

void Copy(benchmark::State& state, bool hot) {
  static Payloads copies;
  std::size_t next = 0;
  for (auto _ : state) {
    std::memcpy(copies.At(next), ThePayloads().At(hot ? 0 : next), kFrameBytes);
    benchmark::ClobberMemory();
    ++next;
  }
}

}  // namespace
}  // namespace tvx::bench

int main(int argc, char** argv) {
  for (const int streams : tvx::bench::kStreamCounts) {
    // Given, as filling the histories takes longer than the measurement and would be repeated.
    benchmark::RegisterBenchmark(("write/" + std::to_string(streams)).c_str(), tvx::bench::Write,
                                 streams)
        ->Iterations(300'000);
  }
  benchmark::RegisterBenchmark("copy", tvx::bench::Copy, false);
  benchmark::RegisterBenchmark("copy_hot", tvx::bench::Copy, true);
  return tvx::bench::RunCases(argc, argv);
}
