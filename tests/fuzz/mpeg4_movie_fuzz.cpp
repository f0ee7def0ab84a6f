// Input: frames of MPEG-4 part 2 as cameras send them (see movie_run.h).
#include "fuzz/input.h"
#include "fuzz/movie_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quicktime;
  test::MovieFile movie;
  if (!test::RunMovie(kMpeg4Video, data, size, movie) || movie.format != "mp4v") return 0;
  for (const std::string& rule : test::BrokenFormatRules(movie)) {
    tvx::test::Require(false, rule.c_str());
  }
  return 0;
}
