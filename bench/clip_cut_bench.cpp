// Cutting a clip out of a full history, under the lock that frames of all streams wait for.
//
//   cut/N   a history of N groups of 30 frames, all of which go into the clip or are held back for
//           it; letting the clip go again is not counted, that is the worker's
#include <memory>
#include <string>

#include "support/frame_source.h"
#include "support/run.h"
#include "video/video_email_stream.h"

namespace tvx::bench {
namespace {

constexpr std::uint32_t kFrameMs = 33;
constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;

void Cut(benchmark::State& state, std::uint32_t groups) {
  StreamFormat format;
  format.Standard = standard::kH264;
  VideoBuffer history(format, kNoLimit);
  FrameBin bin;
  std::uint32_t tick = 0;
  for (std::uint32_t i = 0; i < groups * kFramesPerGroup; ++i, tick += kFrameMs) {
    const std::uint32_t type = i % kFramesPerGroup == 0 ? kKeyFrame : 0;
    history.Add({tick, type, 0, std::make_shared<FrameData>(&history, 1000)}, nullptr, bin);
  }
  const auto seconds = static_cast<std::int32_t>(tick / 1000 + 1);
  for (auto _ : state) {
    std::unique_ptr<CVideoEmailStream> clip;
    TimeOnce(state, [&] {
      clip = std::make_unique<CVideoEmailStream>(history, tick, seconds, 2 * seconds,
                                                 std::weak_ptr<INotifyReady>(),
                                                 std::make_shared<ClipTally>());
    });
    if (clip->Complete()) state.SkipWithError("the clip was complete at once");
    clip->Finish(bin);
    if (clip->Contents().Groups().size() != groups) state.SkipWithError("the clip lacks groups");
  }
}

}  // namespace
}  // namespace tvx::bench

int main(int argc, char** argv) {
  for (const std::uint32_t groups : {30u, 300u}) {
    benchmark::RegisterBenchmark(("cut/" + std::to_string(groups)).c_str(), tvx::bench::Cut, groups)
        ->UseManualTime();
  }
  return tvx::bench::RunCases(argc, argv);
}
