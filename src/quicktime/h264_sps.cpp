#include "quicktime/h264_sps.h"

#include <iterator>

#include "quicktime/bit_reader.h"

namespace quicktime {
namespace {

constexpr std::uint32_t kSequenceIds = 32;
constexpr std::uint32_t kPictureIds = 256;
constexpr std::uint32_t kMonochrome = 0;
constexpr std::uint32_t kFullChroma = 3;  // 4:4:4
constexpr std::uint32_t kMaximumBitsMinus8 = 6;

bool HasChromaFields(std::uint32_t profile) {
  switch (profile) {
    case 100:  // High
    case 110:  // High 10
    case 122:  // High 4:2:2
    case 144:  // High 4:4:4 of the first edition
    case 244:  // High 4:4:4 Predictive
    case 44:   // CAVLC 4:4:4 Intra
    case 83:   // Scalable Baseline
    case 86:   // Scalable High
    case 118:  // Multiview High
    case 128:  // Stereo High
    case 134:  // MFC High
    case 135:  // MFC Depth High
    case 138:  // Multiview Depth High
    case 139:  // Enhanced Multiview Depth High
      return true;
    default:
      return false;
  }
}

void SkipScalingList(BitReader& bits, int entries) {
  std::int64_t last = 8;
  std::int64_t next = 8;
  for (int i = 0; i < entries && bits.Ok(); ++i) {
    if (next != 0) next = (last + bits.Se()) & 0xFF;
    if (next != 0) last = next;
  }
}

void SkipScalingMatrix(BitReader& bits, std::uint32_t chromaFormat) {
  const int lists = chromaFormat == kFullChroma ? 12 : 8;
  for (int i = 0; i < lists; ++i) {
    if (bits.Flag()) SkipScalingList(bits, i < 6 ? 16 : 64);
  }
}

// Sums of offsets and deltas stay far within 64 bits; real ones are below a hundred.
bool IsUsual(std::int32_t offset) {
  return offset >= -0x8000 && offset < 0x8000;
}

// Reads on to its end where it can, as other fields follow.
H264OrderParameters ReadOrder(BitReader& bits) {
  constexpr std::uint32_t kMaximumBitsMinus4 = 12;
  H264OrderParameters order;
  const std::uint32_t frameNumberBits = bits.Ue();
  std::uint32_t lsbBits = 0;
  order.type = bits.Ue();
  order.isKnown = order.type <= 2;
  if (order.type == 0) {
    lsbBits = bits.Ue();
  } else if (order.type == 1) {
    order.deltaIsAlwaysZero = bits.Flag();
    order.offsetForOthers = bits.Se();
    order.offsetToBottom = bits.Se();
    order.isKnown = IsUsual(order.offsetForOthers) && IsUsual(order.offsetToBottom);
    const std::uint32_t cycle = bits.Ue();
    for (std::uint32_t i = 0; i < cycle && bits.Ok(); ++i) {
      const std::int32_t offset = bits.Se();
      order.isKnown = order.isKnown && IsUsual(offset) && cycle <= 255;
      if (order.isKnown) order.offsets.push_back(offset);
    }
  }
  if (frameNumberBits > kMaximumBitsMinus4 || lsbBits > kMaximumBitsMinus4) order.isKnown = false;
  order.frameNumberBits += static_cast<int>(frameNumberBits);
  order.lsbBits += static_cast<int>(lsbBits);
  return order;
}

// One dimension in pixels; unknown (0) when the set states nonsense.
std::uint16_t Dimension(std::uint64_t coded, std::uint64_t cropped) {
  if (cropped >= coded || coded - cropped > 0xFFFF) return 0;
  return static_cast<std::uint16_t>(coded - cropped);
}

FrameSize ReadFrameSize(BitReader& bits, std::uint32_t chromaFormat, bool separatePlanes,
                        bool& framesOnly) {
  constexpr std::uint64_t kMacroblock = 16;
  const std::uint64_t columns = std::uint64_t{bits.Ue()} + 1;
  const std::uint64_t mapUnits = std::uint64_t{bits.Ue()} + 1;
  framesOnly = bits.Flag();
  if (!framesOnly) bits.Skip(1);  // mb_adaptive_frame_field_flag
  bits.Skip(1);                   // direct_8x8_inference_flag
  std::uint64_t left = 0, right = 0, top = 0, bottom = 0;
  if (bits.Flag()) {
    left = bits.Ue();
    right = bits.Ue();
    top = bits.Ue();
    bottom = bits.Ue();
  }
  if (!bits.Ok()) return {};
  // Cropping counts in chroma samples, and in interlaced video in lines of one field.
  const bool sharedChroma = chromaFormat != kMonochrome && !separatePlanes;
  const std::uint64_t unitX = sharedChroma && chromaFormat != kFullChroma ? 2 : 1;
  const std::uint64_t unitY = sharedChroma && chromaFormat == 1 ? 2 : 1;
  const std::uint64_t fields = framesOnly ? 1 : 2;
  const FrameSize size{Dimension(columns * kMacroblock, (left + right) * unitX),
                       Dimension(mapUnits * kMacroblock * fields, (top + bottom) * unitY * fields)};
  return size.width != 0 && size.height != 0 ? size : FrameSize{};
}

// The first field of the usability information.
PixelShape ReadPixelShape(BitReader& bits) {
  constexpr std::uint32_t kStated = 255;
  if (!bits.Flag() || !bits.Flag()) return {};
  const std::uint32_t number = bits.Bits(8);
  PixelShape shape;
  if (number < std::size(kPixelShapes)) shape = kPixelShapes[number];
  if (number == kStated) {
    const std::uint32_t horizontal = bits.Bits(16);
    shape = MakePixelShape(horizontal, bits.Bits(16));
  }
  return bits.Ok() ? shape : PixelShape{};
}

}  // namespace

std::optional<H264SequenceParameters> ParseSequenceParameters(ByteView unit) {
  BitReader bits({unit.data + 1, unit.size - 1}, BitReader::Emulation::Skipped);
  H264SequenceParameters set;
  set.profile = static_cast<std::uint8_t>(bits.Bits(8));
  set.compatibility = static_cast<std::uint8_t>(bits.Bits(8));
  set.level = static_cast<std::uint8_t>(bits.Bits(8));
  set.id = bits.Ue();
  bool separatePlanes = false;
  set.hasChromaFields = HasChromaFields(set.profile);
  if (set.hasChromaFields) {
    const std::uint32_t chromaFormat = bits.Ue();
    if (chromaFormat == kFullChroma) separatePlanes = bits.Flag();
    const std::uint32_t lumaBits = bits.Ue();
    const std::uint32_t chromaBits = bits.Ue();
    if (chromaFormat > kFullChroma || lumaBits > kMaximumBitsMinus8 ||
        chromaBits > kMaximumBitsMinus8) {
      return std::nullopt;
    }
    set.chromaFormat = static_cast<std::uint8_t>(chromaFormat);
    set.lumaBitsMinus8 = static_cast<std::uint8_t>(lumaBits);
    set.chromaBitsMinus8 = static_cast<std::uint8_t>(chromaBits);
    bits.Skip(1);  // qpprime_y_zero_transform_bypass_flag
    if (bits.Flag()) SkipScalingMatrix(bits, chromaFormat);
  }
  if (!bits.Ok() || set.id >= kSequenceIds) return std::nullopt;

  set.order = ReadOrder(bits);
  set.order.hasSeparatePlanes = separatePlanes;
  bits.Ue();     // max_num_ref_frames
  bits.Skip(1);  // gaps_in_frame_num_value_allowed_flag
  set.size = ReadFrameSize(bits, set.chromaFormat, separatePlanes, set.order.framesOnly);
  set.order.isKnown = set.order.isKnown && bits.Ok();
  set.pixels = ReadPixelShape(bits);
  return set;
}

std::optional<H264PictureParameters> ParsePictureParameters(ByteView unit) {
  BitReader bits({unit.data + 1, unit.size - 1}, BitReader::Emulation::Skipped);
  H264PictureParameters set;
  set.id = bits.Ue();
  set.sequenceId = bits.Ue();
  if (!bits.Ok() || set.id >= kPictureIds || set.sequenceId >= kSequenceIds) return std::nullopt;
  bits.Skip(1);  // entropy_coding_mode_flag
  set.hasDeltas = bits.Flag();
  return set;
}

}  // namespace quicktime
