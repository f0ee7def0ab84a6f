#include "quicktime/h264_picture_order.h"

#include <algorithm>
#include <utility>

#include "quicktime/bit_reader.h"
#include "quicktime/h264_access_unit.h"

namespace quicktime {

std::optional<H264PictureOrder::Slice> H264PictureOrder::ReadSlice(ByteView unit,
                                                                   const H264OrderParameters& order,
                                                                   bool hasDeltas) {
  BitReader bits({unit.data + 1, unit.size - 1}, BitReader::Emulation::Skipped);
  Slice slice;
  slice.isIdr = NalType(unit) == nal::kIdrSlice;
  slice.isReference = (unit.data[0] & 0x60) != 0;
  bits.Ue();  // first_mb_in_slice
  bits.Ue();  // slice_type
  bits.Ue();  // pic_parameter_set_id
  if (order.hasSeparatePlanes) bits.Skip(2);
  slice.frameNumber = bits.Bits(order.frameNumberBits);
  if (!order.framesOnly) slice.isField = bits.Flag();
  if (slice.isField) slice.isBottom = bits.Flag();
  if (slice.isIdr) bits.Ue();  // idr_pic_id
  if (order.type == 0) {
    slice.lsb = bits.Bits(order.lsbBits);
    if (hasDeltas && !slice.isField) slice.deltaToBottom = bits.Se();
  } else if (order.type == 1 && !order.deltaIsAlwaysZero) {
    slice.deltas[0] = bits.Se();
    if (hasDeltas && !slice.isField) slice.deltas[1] = bits.Se();
  }
  if (!bits.Ok()) return std::nullopt;
  return slice;
}

std::optional<H264Picture> H264PictureOrder::Read(ByteView unit, const H264ParameterSets& sets) {
  const std::optional<Slice> before = std::exchange(first_, std::nullopt);
  const int type = NalType(unit);
  if (type > nal::kPartitionA && type != nal::kIdrSlice) return std::nullopt;
  BitReader start({unit.data + 1, unit.size - 1}, BitReader::Emulation::Skipped);
  start.Ue();  // first_mb_in_slice
  start.Ue();  // slice_type
  const H264PictureParameters* const picture = sets.FindPicture(start.Ue());
  if (!start.Ok() || picture == nullptr) return std::nullopt;
  const H264SequenceParameters* const sequence = sets.FindSequence(picture->sequenceId);
  if (sequence == nullptr || !sequence->order.isKnown) return std::nullopt;
  const auto slice = ReadSlice(unit, sequence->order, picture->hasDeltas);
  if (!slice) return std::nullopt;

  H264Picture read;
  read.isSecondField = before && before->isField && slice->isField && !slice->isIdr &&
                       before->isBottom != slice->isBottom &&
                       before->frameNumber == slice->frameNumber &&
                       before->isReference == slice->isReference;
  if (slice->isIdr) {
    ++run_;  // of type 0 the bits may go on: only differences count
    frameNumberOffset_ = 0;
    frameNumber_ = 0;
  }
  read.place.place = sequence->order.type == 0 ? PlaceByLsb(*slice, sequence->order)
                                               : PlaceByFrameNumber(*slice, sequence->order);
  read.place.run = run_;
  if (!read.isSecondField) first_ = slice;
  return read;
}

// The low bits are stated; the others go on from the last picture that others refer to.
std::int64_t H264PictureOrder::PlaceByLsb(const Slice& slice, const H264OrderParameters& order) {
  const std::int64_t range = std::int64_t{1} << order.lsbBits;
  const std::int64_t step = std::int64_t{slice.lsb} - lsb_;
  std::int64_t msb = msb_;
  if (step <= -range / 2) msb += range;
  if (step > range / 2) msb -= range;
  if (slice.isReference) {
    msb_ = msb;
    lsb_ = slice.lsb;
  }
  return msb + slice.lsb + std::min<std::int64_t>(slice.deltaToBottom, 0);
}

// Pictures are shown as they are coded (type 2), or at offsets to a cycle of reference frames.
std::int64_t H264PictureOrder::PlaceByFrameNumber(const Slice& slice,
                                                  const H264OrderParameters& order) {
  if (frameNumber_ > slice.frameNumber) {
    frameNumberOffset_ += std::int64_t{1} << order.frameNumberBits;
  }
  frameNumber_ = slice.frameNumber;
  std::int64_t frame = frameNumberOffset_ + slice.frameNumber;
  if (order.type == 2) return 2 * frame - (slice.isReference ? 0 : 1);

  const auto cycle = static_cast<std::int64_t>(order.offsets.size());
  if (!slice.isReference && frame > 0) --frame;
  std::int64_t top = slice.deltas[0];
  if (cycle != 0 && frame > 0) {
    std::int64_t sum = 0;
    for (const std::int32_t offset : order.offsets) sum += offset;
    top += (frame - 1) / cycle * sum;
    for (std::int64_t i = 0; i <= (frame - 1) % cycle; ++i) {
      top += order.offsets[static_cast<std::size_t>(i)];
    }
  }
  if (!slice.isReference) top += order.offsetForOthers;
  if (slice.isField) return slice.isBottom ? top + order.offsetToBottom : top;
  return std::min(top, top + order.offsetToBottom + slice.deltas[1]);
}

}  // namespace quicktime
