#include "quicktime/byte_writer.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace quicktime {

void ByteWriter::PascalString(const char* text) {
  const std::size_t length = std::min<std::size_t>(std::strlen(text), 255);
  U8(static_cast<std::uint8_t>(length));
  Bytes({reinterpret_cast<const std::uint8_t*>(text), length});
}

void ByteWriter::PascalString(const char* text, std::size_t fieldWidth) {
  const std::size_t length = std::min(std::strlen(text), fieldWidth - 1);
  U8(static_cast<std::uint8_t>(length));
  Bytes({reinterpret_cast<const std::uint8_t*>(text), length});
  Zeros(fieldWidth - 1 - length);
}

void ByteWriter::PatchU32(std::size_t position, std::uint32_t value) {
  assert(position + 4 <= bytes_.size());
  for (std::size_t i = 0; i < 4; ++i) {
    bytes_[position + i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
  }
}

void ByteWriter::Number(std::uint64_t value, int width) {
  for (int shift = 8 * (width - 1); shift >= 0; shift -= 8) {
    bytes_.push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

}  // namespace quicktime
