#include "quicktime/h264_samples.h"

#include <algorithm>
#include <utility>

#include "quicktime/h264_access_unit.h"

namespace quicktime {
namespace {

// A clip of one stream changes its sets once or twice, if at all.
constexpr std::size_t kMaximumDescriptions = 16;
constexpr std::size_t kMaximumChangingBytes = 4096;  // of all sets of a description that changes

}  // namespace

std::unique_ptr<H264Samples> H264Samples::From(ByteView firstFrame, ByteView knownSets,
                                               bool keepsSets) {
  H264ParameterSets sets;
  sets.PutAllOf(firstFrame);
  if (!sets.Complete()) {
    sets = {};
    sets.PutAllOf(knownSets);
    sets.PutAllOf(firstFrame);
  }
  if (!sets.Complete()) return nullptr;
  sets.LimitGrowth(kGrowth);
  return std::make_unique<H264Samples>(sets, keepsSets);
}

FrameContent H264Samples::AppendFrame(ByteView frame, OutputFile& file) {
  FrameContent content;
  NalUnits units(frame);
  ByteView unit;
  while (units.Next(unit)) {
    if (!StaysInSample(unit)) continue;
    const int type = NalType(unit);
    if (type >= nal::kFirstSlice && type <= nal::kLastSlice && !content.hasPicture) {
      UseNext();
      content.hasPicture = true;
      content.description = static_cast<std::uint32_t>(current_) + 1;
      if (const auto picture = order_.Read(unit, InForce())) {
        content.place = picture->place;
        content.isSecondField = picture->isSecondField;
      }
    }
    file.AppendU32(static_cast<std::uint32_t>(unit.size));
    file.Append(unit);
  }
  return content;
}

bool H264Samples::StaysInSample(ByteView unit) {
  switch (NalType(unit)) {
    case nal::kSequenceParameterSet:
    case nal::kPictureParameterSet:
      return !TakeSet(unit) || keepsSets_;
    case nal::kAccessUnitDelimiter:
    case nal::kEndOfSequence:
    case nal::kEndOfStream:
    case nal::kFiller:
      return false;
    default:
      return true;
  }
}

// True when a description holds the set.
bool H264Samples::TakeSet(ByteView unit) {
  using Fate = H264ParameterSets::Fate;
  if (endsDescriptions_) return false;
  Fate fate = (next_ ? *next_ : descriptions_[current_]).Take(unit);
  if (fate == Fate::Changed) {
    if (!next_) {
      next_ = descriptions_[current_];
      next_->LimitGrowth(kGrowth);
    }
    const bool isUsual =
        descriptions_.size() < kMaximumDescriptions && next_->Bytes() <= kMaximumChangingBytes;
    fate = isUsual ? next_->Put(unit) : Fate::Refused;
    endsDescriptions_ = fate == Fate::Refused;
  }
  return fate == Fate::Held;
}

void H264Samples::UseNext() {
  const bool isFirst = !std::exchange(hasPictures_, true);
  if (!next_) return;
  if (isFirst) descriptions_.pop_back();  // no picture needs it
  const auto known = std::find(descriptions_.begin(), descriptions_.end(), *next_);
  current_ = static_cast<std::size_t>(known - descriptions_.begin());
  if (known == descriptions_.end()) descriptions_.push_back(*next_);
  next_.reset();
}

std::uint32_t H264Samples::Descriptions() const {
  return static_cast<std::uint32_t>(descriptions_.size());
}

void H264Samples::WriteEntry(ByteWriter& out, std::uint32_t number, const TrackFacts& facts) const {
  const H264ParameterSets& sets = descriptions_[number - 1];
  const H264SequenceParameters& sequence = sets.Sequence();
  // The size that was announced is that of the first description.
  const bool isAsAnnounced = number == 1 || sequence.size == CodedSize();
  VideoSampleEntry entry(out, MakeFourCharacterCode("avc1"), "H.264",
                         isAsAnnounced ? facts.size : sequence.size);
  sets.WriteConfiguration(out);
  WritePixelShape(out, sequence.pixels);
}

}  // namespace quicktime
