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
  // Null when neither the frame nor what is known of the stream brings the headers.
  static std::unique_ptr<Mpeg4Samples> From(ByteView firstFrame, ByteView knownHeaders);

  explicit Mpeg4Samples(const Mpeg4Headers& headers)
      : headers_(headers.bytes.begin(), headers.bytes.end()),
        size_(headers.size),
        pixels_(headers.pixels) {}

  FrameContent AppendFrame(ByteView frame, OutputFile& file) override;
  void WriteEntry(ByteWriter& out, std::uint32_t number, const TrackFacts& facts) const override;
  FrameSize CodedSize() const override { return size_; }
  PixelShape Pixels() const override { return pixels_; }

 private:
  void WriteElementaryStreamDescriptor(ByteWriter& out, const TrackFacts& facts) const;

  const std::vector<std::uint8_t> headers_;
  const FrameSize size_;
  const PixelShape pixels_;
  std::int64_t anchors_ = 0;  // pictures so far that are shown behind all before them
};

}  // namespace quicktime
