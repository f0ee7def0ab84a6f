// How the frames of one kind of coded video become the samples of a movie.
// Threads: one at a time: those of the movie writer that owns it.
#pragma once

#include <cstddef>
#include <memory>

#include "quicktime/byte_view.h"
#include "quicktime/byte_writer.h"
#include "quicktime/four_character_code.h"
#include "quicktime/output_file.h"
#include "quicktime/sample_entry.h"

namespace quicktime {

class SampleFormat {
 public:
  SampleFormat() = default;
  virtual ~SampleFormat() = default;
  SampleFormat(const SampleFormat&) = delete;
  SampleFormat& operator=(const SampleFormat&) = delete;

  // Appends what a sample holds of the frame. False when there is no picture in it: what was
  // appended is then the beginning of the next picture's sample.
  virtual bool AppendFrame(ByteView frame, OutputFile& file) = 0;

  // The entry of the sample description table.
  virtual void WriteEntry(ByteWriter& out, const TrackFacts& facts) const = 0;

  // How many bytes longer the entry may become by frames still to come.
  virtual std::size_t EntryGrowth() const { return 0; }

  // Of the pictures, as their headers state it; unknown where there are none.
  virtual FrameSize CodedSize() const { return {}; }
};

// Chooses by the code that the caller announced and by what its first frame holds. Video whose
// headers are not in its first frame is stored as it comes under that code: some players know what
// to make of it, and nothing of the recording is lost.
std::unique_ptr<SampleFormat> ChooseSampleFormat(FourCharacterCode code, ByteView firstFrame);

}  // namespace quicktime
