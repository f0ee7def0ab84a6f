// Writes coded video as a QuickTime movie file (.mov).
//
// H.264 and MPEG-4 part 2 are stored as players want them, by the headers in the clip's first frame
// or those that are known of its stream (sample_format.h). The file is written forwards: the frame
// count tells how long the index can become, so room for it is left in front of the samples and
// filled at the end. Only where pictures are shown in another order than they are coded, or headers
// change, may the samples have to be moved back.
//
// Owns:    the file until Finish, and a block of memory for writing (output_file.h). No frames.
// Threads: one at a time.
// Limits:  2,000,000 frames; samples of less than 4 GiB each; the movie may be longer than that.
// Errors:  as ExportContainer says. A frame without a picture in it (headers alone, garbage) is no
//          sample: what there is of it goes to the next picture, and the samples share the
//          duration. Two fields in frames of their own are one sample. A movie without any picture
//          is an error.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quicktime/export_container.h"
#include "quicktime/frame_size.h"
#include "quicktime/output_file.h"
#include "quicktime/presentation.h"
#include "quicktime/sample_format.h"
#include "quicktime/sample_table.h"

namespace quicktime {

// Where the headers of H.264 go.
enum class HeaderPlace {
  Description,  // out of the samples, as strict players want it
  SamplesToo,   // for streams whose headers change: some players heed the first description alone
};

class MovieWriter final : public ExportContainer {
 public:
  explicit MovieWriter(HeaderPlace headers = HeaderPlace::Description) : headerPlace_(headers) {}

  int Open(const std::string& path) override;
  void AddVideoTrack(FourCharacterCode code, std::uint32_t width, std::uint32_t height,
                     double durationSeconds, std::uint32_t frameCount,
                     const TextOverlayStyle& overlay) override;
  void UseHeaders(ByteView headers) override;
  void WriteSample(const void* payload, std::size_t length, std::uint32_t flags,
                   std::uint32_t track) override;
  void Finish(double holdSeconds) override;

  // Whether the movie that was finished has more than one description. Then it is worth being
  // written again with headers in the samples, too.
  bool HasChangingHeaders() const { return hasChangingHeaders_; }

 private:
  struct Track {
    FourCharacterCode code;
    FrameSize size;
    double seconds;
    std::uint32_t frameCount;
    SampleTable samples;
    PresentationOrder order{};
    std::vector<std::uint8_t> headers{};  // known of the stream
    std::uint32_t framesTaken = 0;
    std::unique_ptr<SampleFormat> format{};  // chosen by the first frame
    std::size_t headerBytes = 0;             // room in front of the samples
    // What was written since the last sample.
    std::uint64_t sampleStart = 0;
    bool startsAtKeyFrame = false;
  };

  template <typename Step>
  void OrDiscard(Step step);
  void BeginMedia(ByteView firstFrame);
  void TakeFrame(ByteView frame, bool isKeyFrame);
  void EndSample(const FrameContent& content);
  void ExtendLastSample();
  void EndMedia();
  void WriteHeader();

  OutputFile file_;
  std::optional<Track> track_;
  const HeaderPlace headerPlace_;
  bool hasChangingHeaders_ = false;
  bool failed_ = false;
};

}  // namespace quicktime
