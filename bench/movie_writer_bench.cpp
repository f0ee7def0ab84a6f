// An H.264 clip of about 42 MiB made into a movie, beside what writing its bytes takes and beside
// the program that people use for it. All write into the same folder, to a file that was not there
// before; nothing waits for the disk itself.
//
//   write   MovieWriter from Open to Finish, a sample for each coded picture
//   fwrite  the same bytes from memory in pieces of 1 MiB, to the closed file
//   ffmpeg  ffmpeg -c copy of the same elementary stream into a .mov, started as a program
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "quicktime/movie_writer.h"
#include "simulated_host/access_units.h"
#include "support/run.h"

namespace tvx::bench {
namespace {

constexpr std::size_t kMib = 1048576;
constexpr std::size_t kLeastBytes = 30 * kMib;
constexpr int kRuns = 5;  // in one repetition
constexpr double kSeconds = 20;
constexpr std::uint32_t kWidth = 640;
constexpr std::uint32_t kHeight = 360;
constexpr const char* kStream = "clip.h264";
constexpr const char* kOutput = "output.mov";

// Noise keeps the pictures large, as at night; a key frame a second, as cameras send them.
constexpr const char* kMakeStream =
    "exec ffmpeg -nostdin -v error -f lavfi"
    " -i testsrc2=size=640x360:rate=25:duration=20,noise=alls=40:allf=t"
    " -pix_fmt yuv420p -c:v libx264 -preset ultrafast -g 25 -b:v 17M clip.h264";

// The clip in memory, as it lies in the file and where its pictures begin.
struct Clip {
  struct Picture {
    std::size_t begin;
    std::size_t size;
    std::uint32_t flags;
  };
  std::vector<std::uint8_t> bytes;
  std::vector<Picture> pictures;
};

std::vector<std::uint8_t> ReadAll(const char* path) {
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(std::filesystem::file_size(path)));
  std::ifstream(path, std::ios::binary)
      .read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

Clip MakeClip() {
  Clip clip;
  if (std::system(kMakeStream) != 0) return clip;
  const std::vector<std::uint8_t> stream = ReadAll(kStream);
  clip.bytes.reserve(stream.size());
  tool::AccessUnitSplitter splitter(tool::VideoCodec::H264);
  const auto takePictures = [&] {
    while (const auto unit = splitter.Next()) {
      clip.pictures.push_back({clip.bytes.size(), unit->size,
                               unit->key ? quicktime::kKeyFrameSample : quicktime::kOtherSample});
      clip.bytes.insert(clip.bytes.end(), unit->data, unit->data + unit->size);
    }
  };
  for (std::size_t begin = 0; begin < stream.size(); begin += kMib) {
    splitter.Add(stream.data() + begin, std::min(kMib, stream.size() - begin));
    takePictures();
  }
  splitter.End();
  takePictures();
  return clip;
}

const Clip& TheClip() {
  static const Clip clip = MakeClip();
  return clip;
}

bool Ready(benchmark::State& state) {
  if (TheClip().bytes.size() >= kLeastBytes) return true;
  state.SkipWithError("ffmpeg made no clip of that size");
  return false;
}

// A movie that lacks frames would be a fast one.
void CheckOutput(benchmark::State& state) {
  std::error_code error;
  const auto size = std::filesystem::file_size(kOutput, error);
  if (error || size < TheClip().bytes.size() / 100 * 99) state.SkipWithError("a part is missing");
}

void WriteMovie(const Clip& clip) {
  quicktime::MovieWriter movie;
  if (movie.Open(kOutput) != 0) return;
  movie.AddVideoTrack(quicktime::kH264Video, kWidth, kHeight, kSeconds,
                      static_cast<std::uint32_t>(clip.pictures.size()),
                      quicktime::NoTextOverlayStyle);
  for (const Clip::Picture& picture : clip.pictures) {
    movie.WriteSample(&clip.bytes[picture.begin], picture.size, picture.flags, 0);
  }
  movie.Finish(0.0);
}

void Write(benchmark::State& state) {
  if (!Ready(state)) return;
  const Clip& clip = TheClip();
  for (auto _ : state) {
    std::filesystem::remove(kOutput);
    try {
      TimeOnce(state, [&] { WriteMovie(clip); });
    } catch (const std::exception& error) {
      state.SkipWithError(error.what());
    }
  }
  CheckOutput(state);
}

void Fwrite(benchmark::State& state) {
  if (!Ready(state)) return;
  const std::vector<std::uint8_t>& bytes = TheClip().bytes;
  for (auto _ : state) {
    std::filesystem::remove(kOutput);
    TimeOnce(state, [&] {
      const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(kOutput, "wb"),
                                                                 &std::fclose);
      for (std::size_t begin = 0; begin < bytes.size(); begin += kMib) {
        std::fwrite(&bytes[begin], 1, std::min(kMib, bytes.size() - begin), file.get());
      }
    });
  }
  CheckOutput(state);
}

void Ffmpeg(benchmark::State& state) {
  if (!Ready(state)) return;
  const std::string command =
      std::string("exec ffmpeg -nostdin -v error -i ") + kStream + " -c copy " + kOutput;
  for (auto _ : state) {
    std::filesystem::remove(kOutput);
    int status = 0;
    TimeOnce(state, [&] { status = std::system(command.c_str()); });
    if (status != 0) state.SkipWithError("ffmpeg failed");
  }
  CheckOutput(state);
}

}  // namespace
}  // namespace tvx::bench

int main(int argc, char** argv) {
  // As often as each other: a run that follows one of its own kind is faster, fwrite's several times.
  using tvx::bench::kRuns;
  benchmark::RegisterBenchmark("write", tvx::bench::Write)->Iterations(kRuns)->UseManualTime();
  benchmark::RegisterBenchmark("fwrite", tvx::bench::Fwrite)->Iterations(kRuns)->UseManualTime();
  benchmark::RegisterBenchmark("ffmpeg", tvx::bench::Ffmpeg)->UseManualTime();
  return tvx::bench::RunCases(argc, argv);
}
