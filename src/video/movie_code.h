// The code under which a stream's video goes into a movie.
// Threads: any; no state.
#pragma once

#include <cstdint>
#include <optional>

#include "config/stream_format.h"
#include "quicktime/four_character_code.h"

namespace tvx {

// Nothing for pictures, and for what movies cannot hold.
constexpr std::optional<quicktime::FourCharacterCode> MovieCode(std::int32_t encoderStandard) {
  switch (encoderStandard) {
    case standard::kMpeg4:
      return quicktime::kMpeg4Video;
    case standard::kH264:
      return quicktime::kH264Video;
    default:
      return std::nullopt;
  }
}

}  // namespace tvx
