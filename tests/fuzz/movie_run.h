// Makes a movie of a fuzz input and reads it as a strict player does.
//
// Input: width and height (two bytes each), duration (two bytes, in sixteenths of a second and
// maybe negative), then the frames; "%%K" stands in front of a key frame, "%%P" of any other.
#pragma once

#include <cstddef>
#include <cstdint>

#include "quicktime/four_character_code.h"
#include "quicktime/movie_file.h"

namespace quicktime::test {

// The movie must come out whole, or not at all with an exception. Its rules are those that hold
// whatever the frames are. False when there is none.
bool RunMovie(FourCharacterCode code, const std::uint8_t* data, std::size_t size, MovieFile& movie);

}  // namespace quicktime::test
