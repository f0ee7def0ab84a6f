// The units of one coded H.264 picture as a camera sends them.
//
// Standard: ITU-T H.264, 7.4.1 (unit types) and Annex B (byte stream): units follow start codes of
//           three bytes; a fourth zero in front, and zeros behind a unit, are padding.
// Threads: any; no state.
// Errors:   none. What stands before the first start code is no unit; a unit that is cut off is
//           what there is of it.
#pragma once

#include "quicktime/byte_view.h"

namespace quicktime {

// The types that matter here.
namespace nal {
constexpr int kFirstSlice = 1;  // up to kLastSlice: coded picture content
constexpr int kPartitionA = 2;
constexpr int kIdrSlice = 5;
constexpr int kLastSlice = 5;
constexpr int kSequenceParameterSet = 7;
constexpr int kPictureParameterSet = 8;
constexpr int kAccessUnitDelimiter = 9;
constexpr int kEndOfSequence = 10;
constexpr int kEndOfStream = 11;
constexpr int kFiller = 12;
}  // namespace nal

// Only for a unit that is not empty.
constexpr int NalType(std::uint8_t firstByte) {
  return firstByte & 0x1F;
}
inline int NalType(ByteView unit) {
  return NalType(unit.data[0]);
}

// Walks over the units, each without its start code and padding and never empty.
class NalUnits {
 public:
  explicit NalUnits(ByteView payload);

  // False when there is none left.
  bool Next(ByteView& unit);

 private:
  const std::uint8_t* startCode_;  // of the next unit, or end_
  const std::uint8_t* const end_;
};

}  // namespace quicktime
