#include "quicktime/h264_access_unit.h"

#include "quicktime/start_code.h"

namespace quicktime {

NalUnits::NalUnits(ByteView payload)
    : startCode_(FindStartCode(payload.begin(), payload.end())), end_(payload.end()) {}

bool NalUnits::Next(ByteView& unit) {
  while (startCode_ != end_) {
    const std::uint8_t* const begin = startCode_ + kStartCodeSize;
    startCode_ = FindStartCode(begin, end_);
    const std::uint8_t* last = startCode_;
    while (last != begin && last[-1] == 0) --last;
    if (last == begin) continue;
    unit = {begin, static_cast<std::size_t>(last - begin)};
    return true;
  }
  return false;
}

}  // namespace quicktime
