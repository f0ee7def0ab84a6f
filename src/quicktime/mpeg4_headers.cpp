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

void ReadObjectLayer(ByteView layer, Mpeg4Headers& headers) {
  constexpr std::uint32_t kExtendedAspect = 15;
  constexpr std::uint32_t kLastAspect = 5;
  constexpr int kBufferParameters = 79;
  constexpr std::uint32_t kRectangular = 0;
  BitReader bits(layer, BitReader::Emulation::None);
  bits.Skip(1 + 8);                   // random_accessible_vol, video_object_type_indication
  if (bits.Flag()) bits.Skip(4 + 3);  // verid, priority
  const std::uint32_t aspect = bits.Bits(4);
  PixelShape pixels;
  if (aspect <= kLastAspect) pixels = kPixelShapes[aspect];
  if (aspect == kExtendedAspect) {
    const std::uint32_t horizontal = bits.Bits(8);
    pixels = MakePixelShape(horizontal, bits.Bits(8));
  }
  if (bits.Flag()) {   // vol_control_parameters
    bits.Skip(2 + 1);  // chroma_format, low_delay
    if (bits.Flag()) bits.Skip(kBufferParameters);
  }
  if (bits.Bits(2) != kRectangular) return;
  bits.Skip(1);
  const std::uint32_t resolution = bits.Bits(16);
  bits.Skip(1);
  if (resolution == 0) return;
  if (bits.Flag()) bits.Skip(TimeIncrementBits(resolution));  // fixed_vop_time_increment
  bits.Skip(1);
  const std::uint32_t width = bits.Bits(13);
  bits.Skip(1);
  const std::uint32_t height = bits.Bits(13);
  if (!bits.Ok() || width == 0 || height == 0) return;
  headers.size = {static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height)};
  headers.pixels = pixels;
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
      ReadObjectLayer({layer, static_cast<std::size_t>(payload.end() - layer)}, headers);
    }
  }
  headers.bytes = {begin, static_cast<std::size_t>(end - begin)};
  return hasLayer && headers.bytes.size <= kMaximumHeaders;
}

Mpeg4Picture FindMpeg4Picture(ByteView payload) {
  constexpr int kBetween = 2;  // vop_coding_type of a B-VOP
  StartCode code;
  for (const std::uint8_t* next = payload.begin(); NextStartCode(next, payload.end(), code);
       next = code.position + kStartCodeSize) {
    if (code.value != kPicture) continue;
    const std::uint8_t* const head = code.position + kStartCodeSize + 1;
    const bool isBetween = head != payload.end() && *head >> 6 == kBetween;
    return isBetween ? Mpeg4Picture::Between : Mpeg4Picture::Anchor;
  }
  return Mpeg4Picture::None;
}

}  // namespace quicktime
