// Input: frames of H.264 as cameras send them (see movie_run.h).
#include "fuzz/input.h"
#include "fuzz/movie_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quicktime;
  test::MovieFile movie;
  if (!test::RunMovie(kH264Video, data, size, movie) || movie.format != "avc1") return 0;
  std::vector<std::string> broken;
  for (const std::string& sample : movie.samples) test::SampleUnits(sample, broken);
  for (const std::string& rule : broken) tvx::test::Require(false, rule.c_str());
  return 0;
}
