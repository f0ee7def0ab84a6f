// H.264 video as movies store it: units behind their lengths, parameter sets in the description.
//
// Standard: ISO/IEC 14496-15, AVC, sample entry 'avc1'. Delimiters, end marks, filler and the
//           parameter sets that the description holds are not in the samples: strict players
//           refuse them there.
// Threads: one at a time: those of the movie writer that owns it.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "quicktime/h264_parameter_sets.h"
#include "quicktime/sample_format.h"

namespace quicktime {

class H264Samples final : public SampleFormat {
 public:
  // Null when the frame does not bring parameter sets of both kinds.
  static std::unique_ptr<H264Samples> From(ByteView firstFrame);

  explicit H264Samples(H264ParameterSets sets) : sets_(std::move(sets)) {}

  bool AppendFrame(ByteView frame, OutputFile& file) override;
  void WriteEntry(ByteWriter& out, const TrackFacts& facts) const override;
  std::size_t EntryGrowth() const override { return kGrowth; }
  FrameSize CodedSize() const override { return sets_.Size(); }

 private:
  // Room for parameter sets with new numbers in later frames. They take some dozens of bytes each
  // and are rare; those that do not fit stay in their samples.
  static constexpr std::size_t kGrowth = 512;

  bool StaysInSample(ByteView unit);

  H264ParameterSets sets_;
};

}  // namespace quicktime
