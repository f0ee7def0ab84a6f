// The H.264 parameter sets that a movie keeps once, beside its samples.
//
// Standard: ISO/IEC 14496-15, AVC decoder configuration record (the atom 'avcC').
//
// A set that is held leaves the samples. A set that differs from the one held under its number
// cannot be held as well: from then on every set stays in its sample, so that decoders which heed
// sets there meet them in the order of the stream. (A repeated picture set is among them: decoders
// forget it when its sequence set changes.)
//
// Threads: one at a time: those of the movie writer that owns it.
// Errors: a set that cannot be read is not held.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "quicktime/byte_view.h"
#include "quicktime/byte_writer.h"
#include "quicktime/h264_sps.h"

namespace quicktime {

class H264ParameterSets {
 public:
  // Takes a unit that is a parameter set. True when it is held, now or already, and so has nothing
  // to do in a sample.
  bool Take(ByteView unit);

  // From here on new sets are taken up to this many bytes in all.
  void LimitGrowth(std::size_t bytes) { roomLeft_ = bytes; }

  // At least one set of each kind is held: enough to decode with.
  bool Complete() const { return !sequenceSets_.empty() && !pictureSets_.empty(); }

  // Only when complete.
  FrameSize Size() const { return sequenceSets_.front().parameters.size; }
  void WriteConfiguration(ByteWriter& out) const;

 private:
  struct SequenceSet {
    H264SequenceParameters parameters;
    std::vector<std::uint8_t> bytes;
  };
  struct PictureSet {
    H264PictureParameters parameters;
    std::vector<std::uint8_t> bytes;
  };

  bool TakeSequenceSet(ByteView unit);
  bool TakePictureSet(ByteView unit);
  template <typename Set, typename Parameters>
  bool Hold(std::vector<Set>& sets, bool mayAdd, const Parameters& parameters, ByteView unit);
  bool HoldsSequence(std::uint32_t id) const;

  std::vector<SequenceSet> sequenceSets_;
  std::vector<PictureSet> pictureSets_;
  std::size_t roomLeft_ = SIZE_MAX;
  bool changed_ = false;  // a set came that differs from the one held
};

}  // namespace quicktime
