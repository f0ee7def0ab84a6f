// The format of one host video stream, as the host's system document describes it.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdint>

namespace tvx {

// Encoder standards of the host. Any value but Jpeg is a stream coded in groups of pictures that
// start with a key frame.
namespace standard {
constexpr std::int32_t kJpeg = 0;
constexpr std::int32_t kMpeg4 = 4;  // MPEG-4 part 2
constexpr std::int32_t kH264 = 5;
constexpr std::int32_t kH265 = 6;
}  // namespace standard

struct StreamFormat {
  std::int32_t ID = 0;       // the identifier that the stream's frames carry
  std::int32_t Number = -1;  // -1 when unknown
  std::int32_t Width = 0;
  std::int32_t Height = 0;
  std::int32_t Standard = standard::kJpeg;
};

}  // namespace tvx
