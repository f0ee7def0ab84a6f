#include "quicktime/start_code.h"

#include <cstring>

namespace quicktime {

const std::uint8_t* FindStartCode(const std::uint8_t* begin, const std::uint8_t* end) {
  if (end - begin < static_cast<std::ptrdiff_t>(kStartCodeSize)) return end;
  const std::uint8_t* next = begin + 2;
  while (next < end) {
    const void* one = std::memchr(next, 1, static_cast<std::size_t>(end - next));
    if (one == nullptr) return end;
    const std::uint8_t* found = static_cast<const std::uint8_t*>(one);
    if (found[-1] == 0 && found[-2] == 0) return found - 2;
    next = found + 1;
  }
  return end;
}

bool NextStartCode(const std::uint8_t* begin, const std::uint8_t* end, StartCode& found) {
  const std::uint8_t* position = FindStartCode(begin, end);
  if (end - position <= static_cast<std::ptrdiff_t>(kStartCodeSize)) return false;
  found = {position, position[kStartCodeSize]};
  return true;
}

}  // namespace quicktime
