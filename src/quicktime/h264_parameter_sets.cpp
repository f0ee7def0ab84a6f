#include "quicktime/h264_parameter_sets.h"

#include <algorithm>
#include <utility>

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

H264ParameterSets::Fate H264ParameterSets::Take(ByteView unit) {
  return Take(unit, false);
}

H264ParameterSets::Fate H264ParameterSets::Put(ByteView unit) {
  return Take(unit, true);
}

H264ParameterSets::Fate H264ParameterSets::Take(ByteView unit, bool mayReplace) {
  if (NalType(unit) == nal::kSequenceParameterSet) {
    const auto parameters = ParseSequenceParameters(unit);
    if (!parameters) return Fate::Refused;
    const bool mayAdd = sequenceSets_.size() < kMaximumSequenceSets;
    return Hold(sequenceSets_, mayAdd, *parameters, unit, mayReplace);
  }
  const auto parameters = ParsePictureParameters(unit);
  if (!parameters) return Fate::Refused;
  // Beside a sequence set that is not held a new one would mean nothing.
  const bool mayAdd =
      pictureSets_.size() < kMaximumPictureSets && FindSequence(parameters->sequenceId) != nullptr;
  return Hold(pictureSets_, mayAdd, *parameters, unit, mayReplace);
}

template <typename Parameters>
H264ParameterSets::Fate H264ParameterSets::Hold(Sets<Parameters>& sets, bool mayAdd,
                                                const Parameters& parameters, ByteView unit,
                                                bool mayReplace) {
  constexpr std::size_t kLengthField = 2;
  const auto known = std::find_if(sets.begin(), sets.end(), [&](const auto& set) {
    return set.parameters.id == parameters.id;
  });
  const bool isKnown = known != sets.end();
  if (isKnown) {
    const bool isSame =
        std::equal(known->bytes.begin(), known->bytes.end(), unit.begin(), unit.end());
    if (isSame) return Fate::Held;
    if (!mayReplace) return Fate::Changed;
  } else if (!mayAdd) {
    return Fate::Refused;
  }
  if (unit.size > kMaximumSetSize || unit.size + kLengthField > roomLeft_) return Fate::Refused;
  Set<Parameters> set{parameters, {unit.begin(), unit.end()}};
  if (isKnown) {
    *known = std::move(set);
  } else {
    sets.push_back(std::move(set));
  }
  roomLeft_ -= unit.size + kLengthField;
  return Fate::Held;
}

void H264ParameterSets::PutAllOf(ByteView frame) {
  for (const int wanted : {nal::kSequenceParameterSet, nal::kPictureParameterSet}) {
    NalUnits units(frame);
    ByteView unit;
    while (units.Next(unit)) {
      const int type = NalType(unit);
      // The sets of a picture stand in front of it, and the rest of the frame is long.
      if (type >= nal::kFirstSlice && type <= nal::kLastSlice) break;
      if (type == wanted) Put(unit);
    }
  }
}

template <typename Parameters>
const Parameters* H264ParameterSets::Find(const Sets<Parameters>& sets, std::uint32_t id) {
  for (const auto& set : sets) {
    if (set.parameters.id == id) return &set.parameters;
  }
  return nullptr;
}

const H264SequenceParameters* H264ParameterSets::FindSequence(std::uint32_t id) const {
  return Find(sequenceSets_, id);
}

const H264PictureParameters* H264ParameterSets::FindPicture(std::uint32_t id) const {
  return Find(pictureSets_, id);
}

std::size_t H264ParameterSets::Bytes() const {
  std::size_t bytes = 0;
  for (const auto& set : sequenceSets_) bytes += set.bytes.size();
  for (const auto& set : pictureSets_) bytes += set.bytes.size();
  return bytes;
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
  for (const auto& set : sequenceSets_) WriteSet(out, set.bytes);
  out.U8(static_cast<std::uint8_t>(pictureSets_.size()));
  for (const auto& set : pictureSets_) WriteSet(out, set.bytes);
  if (!first.hasChromaFields) return;
  out.U8(static_cast<std::uint8_t>(0xFC | first.chromaFormat));  // reserved ones above each
  out.U8(static_cast<std::uint8_t>(0xF8 | first.lumaBitsMinus8));
  out.U8(static_cast<std::uint8_t>(0xF8 | first.chromaBitsMinus8));
  out.U8(0);  // no extensions of sequence sets
}

}  // namespace quicktime
