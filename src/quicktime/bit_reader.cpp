#include "quicktime/bit_reader.h"

namespace quicktime {

std::uint32_t BitReader::Bits(int count) {
  std::uint32_t value = 0;
  for (int i = 0; i < count; ++i) value = value << 1 | Bit();
  return ok_ ? value : 0;
}

std::uint32_t BitReader::Ue() {
  int leadingZeros = 0;
  while (ok_ && Bit() == 0) {
    if (++leadingZeros > 31) ok_ = false;
  }
  const std::uint32_t rest = Bits(leadingZeros);
  return ok_ ? (std::uint32_t{1} << leadingZeros) - 1 + rest : 0;
}

std::int32_t BitReader::Se() {
  const std::uint32_t code = Ue();
  const auto magnitude = static_cast<std::int32_t>(code / 2 + code % 2);
  return code % 2 == 1 ? magnitude : -magnitude;
}

std::uint32_t BitReader::Bit() {
  if (bitsLeft_ == 0) LoadByte();
  if (!ok_) return 0;
  --bitsLeft_;
  return (byte_ >> bitsLeft_) & 1U;
}

void BitReader::LoadByte() {
  if (emulation_ == Emulation::Skipped && zeros_ >= 2 && next_ != end_ && *next_ == 3) {
    ++next_;
    zeros_ = 0;
  }
  if (next_ == end_) {
    ok_ = false;
    return;
  }
  byte_ = *next_++;
  zeros_ = byte_ == 0 ? zeros_ + 1 : 0;
  bitsLeft_ = 8;
}

}  // namespace quicktime
