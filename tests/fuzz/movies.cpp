// Movies of foreign frames, read as a strict player reads them: a movie must come out whole, or not
// at all with an exception.
//
// Input: width and height (two bytes each; of an odd width the headers are known beforehand),
// duration (two bytes, in sixteenths of a second and maybe negative), then the frames; "%%K" stands
// in front of a key frame, "%%P" of any other.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "quicktime/four_character_code.h"
#include "quicktime/movie_file.h"
#include "quicktime/stream_headers.h"
#include "support/temporary_folder.h"

namespace tvx::test {
namespace {

using namespace quicktime;
using namespace quicktime::test;

CodedFrames CutFrames(std::string_view bytes) {
  CodedFrames frames(1, {"", true});
  for (; !bytes.empty(); bytes.remove_prefix(1)) {
    const std::string_view mark = bytes.substr(0, 3);
    if (mark != "%%K" && mark != "%%P") {
      frames.back().payload += bytes[0];
    } else {
      if (!frames.back().payload.empty()) frames.emplace_back();
      frames.back().isKey = mark == "%%K";
      bytes.remove_prefix(2);
    }
  }
  return frames;
}

void RunMovie(FourCharacterCode code, std::string_view input) {
  ::setenv("TMPDIR", "/dev/shm", 1);
  const tvx::test::TemporaryFolder folder;
  const std::string path = "clip.mov";
  const auto width = TakeNumber<std::uint16_t>(input);
  const auto height = TakeNumber<std::uint16_t>(input);
  const double seconds = TakeNumber<std::int16_t>(input) / 16.0;
  const CodedFrames frames = CutFrames(input);
  // What is known of the stream, as it is gathered of frames of which the clip holds the later ones.
  std::shared_ptr<const StreamHeaders> known;
  for (const CodedFrame& frame : frames) {
    const std::vector<std::uint8_t> bytes(frame.payload.begin(), frame.payload.end());
    known = StreamHeaders::After(code, {bytes.data(), bytes.size()}, known);
  }
  const ByteView bytes = known && width % 2 != 0 ? known->Bytes() : ByteView{};
  try {
    WriteMovie(path, code, width, height, seconds, frames, {bytes.begin(), bytes.end()});
  } catch (const std::runtime_error&) {
    return Require(!tvx::test::FileExists(path), "a movie that failed leaves no file");
  }
  MovieFile movie = ReadMovie(path);
  if (movie.format == "avc1") {
    for (const std::string& sample : movie.samples) SampleUnits(sample, movie.brokenRules);
  }
  for (const std::string& rule : movie.brokenRules) Require(false, rule.c_str());
  Require(movie.samples.size() <= frames.size(), "no more samples than frames");
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  Require(width == 0 || height == 0 || movie.sizes.at(0) == size, "the size is as announced");
  Require(seconds <= 0 || std::abs(movie.movieDuration - seconds * 1000) <= 0.5,
          "the duration is as announced, to a millisecond");
}

}  // namespace

void FuzzH264Movie(std::string_view input) {
  RunMovie(kH264Video, input);
}

void FuzzMpeg4Movie(std::string_view input) {
  RunMovie(kMpeg4Video, input);
}

}  // namespace tvx::test
