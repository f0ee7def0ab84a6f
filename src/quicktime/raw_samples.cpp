#include "quicktime/raw_samples.h"

namespace quicktime {

FrameContent RawSamples::AppendFrame(ByteView frame, OutputFile& file) {
  file.Append(frame);
  FrameContent content;
  content.hasPicture = true;
  return content;
}

void RawSamples::WriteEntry(ByteWriter& out, std::uint32_t /*number*/,
                            const TrackFacts& facts) const {
  VideoSampleEntry entry(out, code_, "", facts.size);
}

}  // namespace quicktime
