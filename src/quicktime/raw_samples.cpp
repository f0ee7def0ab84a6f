#include "quicktime/raw_samples.h"

namespace quicktime {

bool RawSamples::AppendFrame(ByteView frame, OutputFile& file) {
  file.Append(frame);
  return !frame.empty();
}

void RawSamples::WriteEntry(ByteWriter& out, const TrackFacts& facts) const {
  VideoSampleEntry entry(out, code_, "", facts.size);
}

}  // namespace quicktime
