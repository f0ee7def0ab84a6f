#include "quicktime/sample_format.h"

#include "quicktime/h264_samples.h"
#include "quicktime/mpeg4_samples.h"
#include "quicktime/raw_samples.h"

namespace quicktime {

std::unique_ptr<SampleFormat> ChooseSampleFormat(FourCharacterCode code, ByteView firstFrame,
                                                 ByteView knownHeaders, bool keepsHeaders) {
  std::unique_ptr<SampleFormat> format;
  if (code == kH264Video) format = H264Samples::From(firstFrame, knownHeaders, keepsHeaders);
  if (code == kMpeg4Video) format = Mpeg4Samples::From(firstFrame, knownHeaders);
  if (format == nullptr) format = std::make_unique<RawSamples>(code);
  return format;
}

}  // namespace quicktime
