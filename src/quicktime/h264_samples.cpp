#include "quicktime/h264_samples.h"

#include <utility>

#include "quicktime/h264_access_unit.h"

namespace quicktime {

std::unique_ptr<H264Samples> H264Samples::From(ByteView firstFrame) {
  H264ParameterSets sets;
  NalUnits units(firstFrame);
  ByteView unit;
  while (units.Next(unit)) {
    const int type = NalType(unit);
    // The sets of a picture stand in front of it, and the rest of the frame is long.
    if (type >= nal::kFirstSlice && type <= nal::kLastSlice) break;
    if (type == nal::kSequenceParameterSet || type == nal::kPictureParameterSet) sets.Take(unit);
  }
  if (!sets.Complete()) return nullptr;
  sets.LimitGrowth(kGrowth);
  return std::make_unique<H264Samples>(std::move(sets));
}

bool H264Samples::AppendFrame(ByteView frame, OutputFile& file) {
  bool hasPicture = false;
  NalUnits units(frame);
  ByteView unit;
  while (units.Next(unit)) {
    if (!StaysInSample(unit)) continue;
    const int type = NalType(unit);
    if (type >= nal::kFirstSlice && type <= nal::kLastSlice) hasPicture = true;
    file.AppendU32(static_cast<std::uint32_t>(unit.size));
    file.Append(unit);
  }
  return hasPicture;
}

bool H264Samples::StaysInSample(ByteView unit) {
  switch (NalType(unit)) {
    case nal::kSequenceParameterSet:
    case nal::kPictureParameterSet:
      return !sets_.Take(unit);
    case nal::kAccessUnitDelimiter:
    case nal::kEndOfSequence:
    case nal::kEndOfStream:
    case nal::kFiller:
      return false;
    default:
      return true;
  }
}

void H264Samples::WriteEntry(ByteWriter& out, const TrackFacts& facts) const {
  VideoSampleEntry entry(out, MakeFourCharacterCode("avc1"), "H.264", facts.size);
  sets_.WriteConfiguration(out);
}

}  // namespace quicktime
