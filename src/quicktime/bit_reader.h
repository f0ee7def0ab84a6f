// Reads the headers of coded video bit by bit.
//
// Standards: ITU-T H.264, 7.2 (bits), 9.1 (Exp-Golomb codes) and 7.4.1 (emulation prevention bytes,
//            which are skipped when asked for); ISO/IEC 14496-2 has plain bits only.
// Threads: one at a time: those of the movie writer that owns it.
// Errors:    stick. Past the end, or at a code longer than 32 bits, everything reads as 0 and Ok is
//            false; it is asked once, at the end.
#pragma once

#include <cstdint>

#include "quicktime/byte_view.h"

namespace quicktime {

class BitReader {
 public:
  enum class Emulation { None, Skipped };

  BitReader(ByteView bytes, Emulation emulation)
      : next_(bytes.begin()), end_(bytes.end()), emulation_(emulation) {}

  bool Flag() { return Bit() != 0; }
  std::uint32_t Bits(int count);  // at most 32
  void Skip(int count) {
    for (int i = 0; i < count; ++i) Bit();
  }
  std::uint32_t Ue();  // unsigned Exp-Golomb
  std::int32_t Se();   // signed Exp-Golomb
  bool Ok() const { return ok_; }

 private:
  std::uint32_t Bit();
  void LoadByte();

  const std::uint8_t* next_;
  const std::uint8_t* const end_;
  const Emulation emulation_;
  int zeros_ = 0;  // zero bytes just before next_
  std::uint8_t byte_ = 0;
  int bitsLeft_ = 0;
  bool ok_ = true;
};

}  // namespace quicktime
