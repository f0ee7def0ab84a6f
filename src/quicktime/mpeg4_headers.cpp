#include "quicktime/mpeg4_headers.h"

#include "quicktime/bit_reader.h"
#include "quicktime/start_code.h"

namespace quicktime {
namespace {

constexpr std::uint8_t kFirstObjectLayer = 0x20;
constexpr std::uint8_t kLastObjectLayer = 0x2F;
constexpr std::uint8_t kGroup = 0xB3;
constexpr std::uint8_t kPicture = 0xB6;

// Real ones take some dozens of bytes, or hundreds with user data.
constexpr std::size_t kMaximumHeaders = 0xFFFF;

// The bits of vop_time_increment: as many as its largest value needs, at least one.
int TimeIncrementBits(std::uint32_t resolution) {
  int bits = 1;
  while (bits < 16 && (resolution - 1) >> bits != 0) ++bits;
  return bits;
}

FrameSize ReadObjectLayer(ByteView layer) {
  constexpr std::uint32_t kExtendedAspect = 15;
  constexpr int kBufferParameters = 79;
  constexpr std::uint32_t kRectangular = 0;
  BitReader bits(layer, BitReader::Emulation::None);
  bits.Skip(1 + 8);                   // random_accessible_vol, video_object_type_indication
  if (bits.Flag()) bits.Skip(4 + 3);  // verid, priority
  if (bits.Bits(4) == kExtendedAspect) bits.Skip(8 + 8);
  if (bits.Flag()) {   // vol_control_parameters
    bits.Skip(2 + 1);  // chroma_format, low_delay
    if (bits.Flag()) bits.Skip(kBufferParameters);
  }
  if (bits.Bits(2) != kRectangular) return {};
  bits.Skip(1);
  const std::uint32_t resolution = bits.Bits(16);
  bits.Skip(1);
  if (resolution == 0) return {};
  if (bits.Flag()) bits.Skip(TimeIncrementBits(resolution));  // fixed_vop_time_increment
  bits.Skip(1);
  const std::uint32_t width = bits.Bits(13);
  bits.Skip(1);
  const std::uint32_t height = bits.Bits(13);
  if (!bits.Ok() || width == 0 || height == 0) return {};
  return {static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height)};
}

}  // namespace

bool FindMpeg4Headers(ByteView payload, Mpeg4Headers& headers) {
  const std::uint8_t* const begin = FindStartCode(payload.begin(), payload.end());
  const std::uint8_t* end = payload.end();
  bool hasLayer = false;
  StartCode code;
  for (const std::uint8_t* next = begin; NextStartCode(next, payload.end(), code);
       next = code.position + kStartCodeSize) {
    if (code.value == kGroup || code.value == kPicture) {
      end = code.position;
      break;
    }
    if (!hasLayer && code.value >= kFirstObjectLayer && code.value <= kLastObjectLayer) {
      hasLayer = true;
      const std::uint8_t* const layer = code.position + kStartCodeSize + 1;
      headers.size = ReadObjectLayer({layer, static_cast<std::size_t>(payload.end() - layer)});
    }
  }
  headers.bytes = {begin, static_cast<std::size_t>(end - begin)};
  return hasLayer && headers.bytes.size <= kMaximumHeaders;
}

bool HasMpeg4Picture(ByteView payload) {
  StartCode code;
  for (const std::uint8_t* next = payload.begin(); NextStartCode(next, payload.end(), code);
       next = code.position + kStartCodeSize) {
    if (code.value == kPicture) return true;
  }
  return false;
}

}  // namespace quicktime
