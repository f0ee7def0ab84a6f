// Grows a stretch of big-endian bytes, the order of every number in a QuickTime file.
//
// Threads: one at a time: those of the movie writer that owns it.
// Errors: memory exhaustion only (std::bad_alloc, std::length_error).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "quicktime/byte_view.h"

namespace quicktime {

class ByteWriter {
 public:
  void U8(std::uint8_t value) { bytes_.push_back(value); }
  void U16(std::uint16_t value) { Number(value, 2); }
  void U24(std::uint32_t value) { Number(value, 3); }  // the low 24 bits
  void U32(std::uint32_t value) { Number(value, 4); }
  void U64(std::uint64_t value) { Number(value, 8); }
  void Bytes(ByteView bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  void Zeros(std::size_t count) { bytes_.insert(bytes_.end(), count, 0); }

  // A string with its length in front, which is how QuickTime keeps names; at most 255 bytes of it.
  void PascalString(const char* text);

  // The same in a field of a fixed width, filled with zeros.
  void PascalString(const char* text, std::size_t fieldWidth);

  // Writes over four bytes that are there already.
  void PatchU32(std::size_t position, std::uint32_t value);

  std::size_t Size() const { return bytes_.size(); }
  ByteView View() const { return {bytes_.data(), bytes_.size()}; }

 private:
  void Number(std::uint64_t value, int width);

  std::vector<std::uint8_t> bytes_;
};

}  // namespace quicktime
