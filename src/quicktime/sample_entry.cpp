#include "quicktime/sample_entry.h"

namespace quicktime {

VideoSampleEntry::VideoSampleEntry(ByteWriter& out, FourCharacterCode format,
                                   const char* compressorName, FrameSize size)
    : atom_(out, format) {
  constexpr std::uint32_t kNormalQuality = 0x200;
  constexpr std::uint32_t kDotsPerInch = 72U << 16;
  constexpr std::uint16_t kColourWithoutAlpha = 24;
  constexpr std::uint16_t kNoColourTable = 0xFFFF;
  constexpr std::size_t kNameField = 32;
  out.Zeros(6);             // reserved
  out.U16(1);               // data reference: the first and only one
  out.U16(0);               // version
  out.U16(0);               // revision
  out.U32(0);               // vendor
  out.U32(kNormalQuality);  // temporal quality
  out.U32(kNormalQuality);  // spatial quality
  out.U16(size.width);
  out.U16(size.height);
  out.U32(kDotsPerInch);  // horizontal resolution
  out.U32(kDotsPerInch);  // vertical resolution
  out.U32(0);             // data size, always 0
  out.U16(1);             // frames in a sample
  out.PascalString(compressorName, kNameField);
  out.U16(kColourWithoutAlpha);  // depth
  out.U16(kNoColourTable);
}

void WritePixelShape(ByteWriter& out, PixelShape pixels) {
  if (pixels.IsSquare()) return;
  AtomScope atom(out, "pasp");
  out.U32(pixels.horizontal);
  out.U32(pixels.vertical);
}

}  // namespace quicktime
