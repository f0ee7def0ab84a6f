// H.264 video as movies store it: units behind their lengths, parameter sets in the description.
//
// Standard: ISO/IEC 14496-15, AVC, sample entry 'avc1'. Delimiters, end marks, filler and the
//           parameter sets that the description holds are not in the samples: strict players
//           refuse them there. A set that changes under its number begins another description,
//           for the pictures from there on; one that an earlier description holds is that one
//           again. Where that would be more than anybody needs, all sets stay in their samples,
//           so that decoders which heed them there meet them in the order of the stream. They
//           stay as well if the caller wants it (movie_writer.h tells when).
// Threads: one at a time: those of the movie writer that owns it.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "quicktime/h264_parameter_sets.h"
#include "quicktime/h264_picture_order.h"
#include "quicktime/sample_format.h"

namespace quicktime {

class H264Samples final : public SampleFormat {
 public:
  // Null when neither the frame nor what is known of the stream brings sets of both kinds; what the
  // frame brings counts first.
  static std::unique_ptr<H264Samples> From(ByteView firstFrame, ByteView knownSets,
                                           bool keepsSets = false);

  explicit H264Samples(const H264ParameterSets& sets, bool keepsSets)
      : descriptions_{sets}, keepsSets_(keepsSets) {}

  FrameContent AppendFrame(ByteView frame, OutputFile& file) override;
  std::uint32_t Descriptions() const override;
  void WriteEntry(ByteWriter& out, std::uint32_t number, const TrackFacts& facts) const override;
  std::size_t EntryGrowth() const override { return kGrowth; }
  FrameSize CodedSize() const override { return descriptions_.front().Sequence().size; }
  PixelShape Pixels() const override { return descriptions_.front().Sequence().pixels; }

 private:
  // Room for parameter sets with new numbers in later frames. They take some dozens of bytes each
  // and are rare; those that do not fit stay in their samples.
  static constexpr std::size_t kGrowth = 512;

  bool StaysInSample(ByteView unit);
  bool TakeSet(ByteView unit);
  const H264ParameterSets& InForce() const { return next_ ? *next_ : descriptions_[current_]; }
  void UseNext();

  std::vector<H264ParameterSets> descriptions_;  // never empty
  const bool keepsSets_;                         // in samples, too
  std::size_t current_ = 0;                      // of the pictures that come
  std::optional<H264ParameterSets> next_;        // of the next picture, when sets have changed
  bool hasPictures_ = false;
  bool endsDescriptions_ = false;  // from here on no set is taken into one
  H264PictureOrder order_;
};

}  // namespace quicktime
