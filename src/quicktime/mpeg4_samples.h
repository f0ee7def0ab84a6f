// MPEG-4 part 2 video as movies store it: frames as they come, headers in the description too.
//
// Standard: QuickTime File Format, "MPEG-4 elementary stream descriptor atom" ('esds'), whose
//           descriptors ISO/IEC 14496-1 defines.
// Threads: one at a time: those of the movie writer that owns it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "quicktime/mpeg4_headers.h"
#include "quicktime/sample_format.h"

namespace quicktime {

class Mpeg4Samples final : public SampleFormat {
 public:
  // Null when the frame does not bring the headers.
  static std::unique_ptr<Mpeg4Samples> From(ByteView firstFrame);

  explicit Mpeg4Samples(const Mpeg4Headers& headers)
      : headers_(headers.bytes.begin(), headers.bytes.end()), size_(headers.size) {}

  bool AppendFrame(ByteView frame, OutputFile& file) override;
  void WriteEntry(ByteWriter& out, const TrackFacts& facts) const override;
  FrameSize CodedSize() const override { return size_; }

 private:
  void WriteElementaryStreamDescriptor(ByteWriter& out, const TrackFacts& facts) const;

  const std::vector<std::uint8_t> headers_;
  const FrameSize size_;
};

}  // namespace quicktime
