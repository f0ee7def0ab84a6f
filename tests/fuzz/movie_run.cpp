#include "fuzz/movie_run.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/input.h"
#include "quicktime/movie_writer.h"
#include "support/temporary_folder.h"

namespace quicktime::test {
namespace {

using tvx::test::Require;

struct Input {
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  std::int16_t duration = 0;
  std::vector<std::pair<std::string_view, bool>> frames;  // with whether it is a key frame
};

template <typename Number>
void Take(std::string_view& input, Number& number) {
  const std::string_view bytes = input.substr(0, sizeof(number));
  std::memcpy(&number, bytes.data(), bytes.size());
  input.remove_prefix(bytes.size());
}

Input Cut(std::string_view bytes) {
  constexpr std::size_t kMarkSize = 3;
  Input input;
  Take(bytes, input.width);
  Take(bytes, input.height);
  Take(bytes, input.duration);
  bool isKey = true;
  for (std::size_t at = 0; (at = bytes.find("%%", at)) != std::string_view::npos; ++at) {
    const char kind = at + 2 < bytes.size() ? bytes[at + 2] : '\0';
    if (kind != 'K' && kind != 'P') continue;
    if (at != 0) input.frames.emplace_back(bytes.substr(0, at), isKey);
    isKey = kind == 'K';
    bytes.remove_prefix(at + kMarkSize);
    at = static_cast<std::size_t>(-1);
  }
  input.frames.emplace_back(bytes, isKey);
  return input;
}

void Write(MovieWriter& writer, FourCharacterCode code, const Input& input) {
  writer.AddVideoTrack(code, input.width, input.height, input.duration / 16.0,
                       static_cast<std::uint32_t>(input.frames.size()), NoTextOverlayStyle);
  for (const auto& [bytes, isKey] : input.frames) {
    // A block of exactly this size, so that reading beyond it is noticed.
    const std::vector<char> frame(bytes.begin(), bytes.end());
    writer.WriteSample(frame.data(), frame.size(), isKey ? kKeyFrameSample : kOtherSample, 0);
  }
  writer.Finish(0.0);
}

}  // namespace

bool RunMovie(FourCharacterCode code, const std::uint8_t* data, std::size_t size,
              MovieFile& movie) {
  ::setenv("TMPDIR", "/dev/shm", 1);
  const tvx::test::TemporaryFolder folder;
  const std::string path = "clip.mov";
  const Input input = Cut(tvx::test::AsText(data, size));
  try {
    MovieWriter writer;
    Require(writer.Open(path) == 0, "a file can be made");
    Write(writer, code, input);
  } catch (const std::runtime_error&) {
    Require(!tvx::test::FileExists(path), "a movie that failed leaves no file");
    return false;
  }
  movie = ReadMovie(path);
  for (const std::string& rule : movie.brokenRules) Require(false, rule.c_str());
  Require(movie.samples.size() <= input.frames.size(), "no more samples than frames");
  const bool isSized = input.width != 0 && input.height != 0;
  Require(!isSized || (movie.width == input.width && movie.height == input.height),
          "the size is as announced");
  const double milliseconds = input.duration * 1000 / 16.0;
  Require(milliseconds <= 0 || std::abs(movie.movieDuration - milliseconds) <= 0.5,
          "the duration is as announced, to a millisecond");
  return true;
}

}  // namespace quicktime::test
