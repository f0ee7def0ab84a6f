// Input: frames of MPEG-4 part 2 as cameras send them (see movie_run.h).
#include "fuzz/movie_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace quicktime;
  test::MovieFile movie;
  test::RunMovie(kMpeg4Video, data, size, movie);
  return 0;
}
