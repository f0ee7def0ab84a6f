// Video that is stored as it comes, under the code it was announced with.
// Threads: one at a time: those of the movie writer that owns it.
#pragma once

#include "quicktime/sample_format.h"

namespace quicktime {

class RawSamples final : public SampleFormat {
 public:
  explicit RawSamples(FourCharacterCode code) : code_(code) {}

  FrameContent AppendFrame(ByteView frame, OutputFile& file) override;
  void WriteEntry(ByteWriter& out, std::uint32_t number, const TrackFacts& facts) const override;

 private:
  const FourCharacterCode code_;
};

}  // namespace quicktime
