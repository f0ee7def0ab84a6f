// A stretch of bytes that somebody else owns.
// Threads: a plain value, its owner's.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quicktime {

struct ByteView {
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;

  const std::uint8_t* begin() const { return data; }
  const std::uint8_t* end() const { return data + size; }
  bool empty() const { return size == 0; }
};

}  // namespace quicktime
