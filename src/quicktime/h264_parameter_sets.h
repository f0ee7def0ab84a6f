// The H.264 parameter sets that a movie keeps once, beside its samples.
//
// Standard: ISO/IEC 14496-15, AVC decoder configuration record (the atom 'avcC').
//
// A set that is held leaves the samples. One that differs from the set held under its number needs
// another record, for the pictures that follow it (h264_samples.h).
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
  enum class Fate {
    Held,     // now or already, so it has nothing to do in a sample
    Changed,  // another one is held under its number
    Refused,
  };

  // Takes a unit that is a parameter set.
  Fate Take(ByteView unit);
  // The same, but in the place of one that is held under its number.
  Fate Put(ByteView unit);

  // Puts what is in front of the first picture of a frame, sequence sets first: some encoders send
  // them last.
  void PutAllOf(ByteView frame);

  // From here on new sets are taken up to this many bytes in all.
  void LimitGrowth(std::size_t bytes) { roomLeft_ = bytes; }

  // At least one set of each kind is held: enough to decode with.
  bool Complete() const { return !sequenceSets_.empty() && !pictureSets_.empty(); }

  // Null when none of this number is held.
  const H264SequenceParameters* FindSequence(std::uint32_t id) const;
  const H264PictureParameters* FindPicture(std::uint32_t id) const;

  std::size_t Bytes() const;  // of the sets
  friend bool operator==(const H264ParameterSets& a, const H264ParameterSets& b) {
    return a.sequenceSets_ == b.sequenceSets_ && a.pictureSets_ == b.pictureSets_;
  }

  // Only when complete: of the first sequence set.
  const H264SequenceParameters& Sequence() const { return sequenceSets_.front().parameters; }
  void WriteConfiguration(ByteWriter& out) const;

 private:
  template <typename Parameters>
  struct Set {
    Parameters parameters;
    std::vector<std::uint8_t> bytes;

    friend bool operator==(const Set& a, const Set& b) { return a.bytes == b.bytes; }
  };
  template <typename Parameters>
  using Sets = std::vector<Set<Parameters>>;

  Fate Take(ByteView unit, bool mayReplace);
  template <typename Parameters>
  Fate Hold(Sets<Parameters>& sets, bool mayAdd, const Parameters& parameters, ByteView unit,
            bool mayReplace);
  template <typename Parameters>
  static const Parameters* Find(const Sets<Parameters>& sets, std::uint32_t id);

  Sets<H264SequenceParameters> sequenceSets_;
  Sets<H264PictureParameters> pictureSets_;
  std::size_t roomLeft_ = SIZE_MAX;
};

}  // namespace quicktime
