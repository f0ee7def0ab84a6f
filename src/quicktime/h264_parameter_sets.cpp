#include "quicktime/h264_parameter_sets.h"

#include <algorithm>

#include "quicktime/atom_scope.h"
#include "quicktime/h264_access_unit.h"

namespace quicktime {
namespace {

// The record counts sequence sets in 5 bits and picture sets in 8, and lengths in 16.
constexpr std::size_t kMaximumSequenceSets = 31;
constexpr std::size_t kMaximumPictureSets = 255;
constexpr std::size_t kMaximumSetSize = 0xFFFF;

void WriteSet(ByteWriter& out, const std::vector<std::uint8_t>& bytes) {
  out.U16(static_cast<std::uint16_t>(bytes.size()));
  out.Bytes({bytes.data(), bytes.size()});
}

}  // namespace

bool H264ParameterSets::Take(ByteView unit) {
  return NalType(unit) == nal::kSequenceParameterSet ? TakeSequenceSet(unit) : TakePictureSet(unit);
}

bool H264ParameterSets::TakeSequenceSet(ByteView unit) {
  const auto parameters = ParseSequenceParameters(unit);
  if (!parameters) return false;
  return Hold(sequenceSets_, sequenceSets_.size() < kMaximumSequenceSets, *parameters, unit);
}

bool H264ParameterSets::TakePictureSet(ByteView unit) {
  const auto parameters = ParsePictureParameters(unit);
  if (!parameters) return false;
  // Beside a sequence set that is not held a new one would mean nothing.
  const bool mayAdd =
      pictureSets_.size() < kMaximumPictureSets && HoldsSequence(parameters->sequenceId);
  return Hold(pictureSets_, mayAdd, *parameters, unit);
}

template <typename Set, typename Parameters>
bool H264ParameterSets::Hold(std::vector<Set>& sets, bool mayAdd, const Parameters& parameters,
                             ByteView unit) {
  const auto known = std::find_if(
      sets.begin(), sets.end(), [&](const Set& set) { return set.parameters.id == parameters.id; });
  if (known != sets.end()) {
    const bool same =
        std::equal(known->bytes.begin(), known->bytes.end(), unit.begin(), unit.end());
    if (!same) changed_ = true;
    return !changed_;
  }
  constexpr std::size_t kLengthField = 2;
  if (changed_ || !mayAdd || unit.size > kMaximumSetSize) return false;
  if (unit.size + kLengthField > roomLeft_) return false;
  sets.push_back({parameters, {unit.begin(), unit.end()}});
  roomLeft_ -= unit.size + kLengthField;
  return true;
}

bool H264ParameterSets::HoldsSequence(std::uint32_t id) const {
  return std::any_of(sequenceSets_.begin(), sequenceSets_.end(),
                     [id](const SequenceSet& set) { return set.parameters.id == id; });
}

void H264ParameterSets::WriteConfiguration(ByteWriter& out) const {
  const H264SequenceParameters& first = sequenceSets_.front().parameters;
  AtomScope atom(out, "avcC");
  out.U8(1);  // version of the record
  out.U8(first.profile);
  out.U8(first.compatibility);
  out.U8(first.level);
  out.U8(0xFC | 3);  // reserved ones; units in samples have lengths of 3 + 1 bytes
  out.U8(static_cast<std::uint8_t>(0xE0 | sequenceSets_.size()));  // reserved ones; count
  for (const SequenceSet& set : sequenceSets_) WriteSet(out, set.bytes);
  out.U8(static_cast<std::uint8_t>(pictureSets_.size()));
  for (const PictureSet& set : pictureSets_) WriteSet(out, set.bytes);
  if (!first.hasChromaFields) return;
  out.U8(static_cast<std::uint8_t>(0xFC | first.chromaFormat));  // reserved ones above each
  out.U8(static_cast<std::uint8_t>(0xF8 | first.lumaBitsMinus8));
  out.U8(static_cast<std::uint8_t>(0xF8 | first.chromaBitsMinus8));
  out.U8(0);  // no extensions of sequence sets
}

}  // namespace quicktime
