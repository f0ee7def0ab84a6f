// How the frames of one kind of coded video become the samples of a movie.
// Threads: one at a time: those of the movie writer that owns it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "quicktime/byte_view.h"
#include "quicktime/byte_writer.h"
#include "quicktime/four_character_code.h"
#include "quicktime/output_file.h"
#include "quicktime/pixel_shape.h"
#include "quicktime/presentation.h"
#include "quicktime/sample_entry.h"

namespace quicktime {

// What came with a frame.
struct FrameContent {
  bool hasPicture = false;
  bool isSecondField = false;       // the picture belongs to the sample before
  std::uint32_t description = 1;    // of the picture
  std::optional<ShownPlace> place;  // of the picture; nothing when that is not known
};

class SampleFormat {
 public:
  SampleFormat() = default;
  virtual ~SampleFormat() = default;
  SampleFormat(const SampleFormat&) = delete;
  SampleFormat& operator=(const SampleFormat&) = delete;

  // Appends what a sample holds of the frame. Without a picture it is the beginning of the next
  // picture's sample.
  virtual FrameContent AppendFrame(ByteView frame, OutputFile& file) = 0;

  // How many entries the sample description table has, and each of them, from 1.
  virtual std::uint32_t Descriptions() const { return 1; }
  virtual void WriteEntry(ByteWriter& out, std::uint32_t number, const TrackFacts& facts) const = 0;

  // How many bytes longer the entries are expected to become by frames still to come.
  virtual std::size_t EntryGrowth() const { return 0; }

  // Of the pictures, as their headers state it; unknown where there are none.
  virtual FrameSize CodedSize() const { return {}; }
  virtual PixelShape Pixels() const { return {}; }
};

// Chooses by the code that the caller announced and by what its first frame holds, or else what is
// known of its stream (stream_headers.h). Video without headers is stored as it comes under that
// code: some players know what to make of it, and nothing of the recording is lost. keepsHeaders: what the
// descriptions hold stays in the samples, too.
std::unique_ptr<SampleFormat> ChooseSampleFormat(FourCharacterCode code, ByteView firstFrame,
                                                 ByteView knownHeaders, bool keepsHeaders);

}  // namespace quicktime
