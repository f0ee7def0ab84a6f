#include "soak/access_units.h"

#include <algorithm>
#include <iterator>

namespace tvx::tool {
namespace {

constexpr std::uint8_t kStartCode[] = {0, 0, 1};

// The start code, the byte that tells what follows, and the first one of that.
constexpr std::size_t kMarkSize = 5;

// What one start code means for the units around it.
struct Mark {
  bool begins;   // a new unit, when the current one has its picture
  bool picture;  // coded picture content follows
  bool key;      // of a picture that needs no other
};

Mark H264Mark(std::uint8_t header, std::uint8_t next) {
  const int type = header & 0x1F;
  switch (type) {
    case 1:    // slice
    case 2:    // slice, first of three partitions
    case 5: {  // slice of an IDR picture
      // The number of the slice's first macroblock comes first; 0 is coded as one bit that is set.
      const bool first = (next & 0x80) != 0;
      return {first, true, type == 5};
    }
    case 3:
    case 4:  // the other partitions
      return {false, true, false};
    case 6:  // supplemental information
    case 7:  // parameter sets
    case 8:
    case 9:  // delimiter
    case 14:
    case 15:
    case 16:
    case 17:
    case 18:
      return {true, false, false};
    default:  // ends of sequence and stream, filler: part of what they follow
      return {false, false, false};
  }
}

Mark Mpeg4Mark(std::uint8_t code, std::uint8_t next) {
  constexpr std::uint8_t kSequenceEnd = 0xB1;
  constexpr std::uint8_t kVop = 0xB6;
  if (code == kVop) return {true, true, next >> 6 == 0};
  return {code != kSequenceEnd, false, false};
}

}  // namespace

void AccessUnitSplitter::Add(const void* data, std::size_t size) {
  bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(begin_));
  scan_ -= begin_;
  begin_ = 0;
  if (bytes_.size() > kMaxUnit) throw AccessUnitError("no picture ends within 32 MiB");
  const auto* more = static_cast<const std::uint8_t*>(data);
  bytes_.insert(bytes_.end(), more, more + size);
}

std::optional<AccessUnit> AccessUnitSplitter::Next() {
  return codec_ == VideoCodec::Jpeg ? NextImage() : NextByStartCodes();
}

AccessUnit AccessUnitSplitter::TakeUntil(std::size_t end) {
  const AccessUnit unit{bytes_.data() + begin_, end - begin_, key_};
  begin_ = end;
  hasPicture_ = false;
  key_ = false;
  return unit;
}

std::optional<AccessUnit> AccessUnitSplitter::NextByStartCodes() {
  for (;;) {
    const auto found = std::search(bytes_.begin() + static_cast<std::ptrdiff_t>(scan_),
                                   bytes_.end(), std::begin(kStartCode), std::end(kStartCode));
    auto position = static_cast<std::size_t>(found - bytes_.begin());
    if (bytes_.size() - position < kMarkSize) {
      // A start code, or two zeros of one, may be all that has come of it.
      if (found == bytes_.end()) position -= std::min<std::size_t>(bytes_.size() - scan_, 2);
      scan_ = position;
      if (!ended_ || !hasPicture_) return std::nullopt;
      return TakeUntil(bytes_.size());
    }
    scan_ = position + kMarkSize - 1;
    const Mark mark = codec_ == VideoCodec::H264
                          ? H264Mark(bytes_[position + 3], bytes_[position + 4])
                          : Mpeg4Mark(bytes_[position + 3], bytes_[position + 4]);
    // In H.264 a zero in front makes a start code of four bytes.
    const bool isLong =
        codec_ == VideoCodec::H264 && position > begin_ && bytes_[position - 1] == 0;
    if (isLong) --position;
    std::optional<AccessUnit> finished;
    if (!inUnit_) {
      inUnit_ = true;
      begin_ = position;
    } else if (hasPicture_ && mark.begins) {
      finished = TakeUntil(position);
    }
    if (mark.picture) {
      hasPicture_ = true;
      key_ = key_ || mark.key;
    }
    if (finished) return finished;
  }
}

// Goes to the beginning of an image. False until there is one.
bool AccessUnitSplitter::FindImage() {
  constexpr std::uint8_t kBegin[] = {0xFF, 0xD8};
  const auto found = std::search(bytes_.begin() + static_cast<std::ptrdiff_t>(scan_), bytes_.end(),
                                 std::begin(kBegin), std::end(kBegin));
  begin_ = static_cast<std::size_t>(found - bytes_.begin());
  if (found == bytes_.end()) {
    if (begin_ > scan_) --begin_;
    scan_ = begin_;
    return false;
  }
  scan_ = begin_ + sizeof(kBegin);
  inUnit_ = true;
  inCodedData_ = false;
  return true;
}

// Goes over one segment, or the coded data up to the next marker. False until it is complete.
bool AccessUnitSplitter::PassSegment(bool& imageEnds) {
  const auto isMarker = [this](std::size_t at) {
    const std::uint8_t value = bytes_[at + 1];
    const bool restart = value >= 0xD0 && value <= 0xD7;
    return bytes_[at] == 0xFF && value != 0 && value != 0xFF && !restart;
  };
  while (scan_ + 1 < bytes_.size() && !isMarker(scan_)) {
    // Between segments nothing but padding stands; anything else is no JPEG image.
    if (!inCodedData_ && bytes_[scan_] != 0xFF) {
      inUnit_ = false;
      return true;
    }
    ++scan_;
  }
  if (scan_ + 1 >= bytes_.size()) return false;
  const std::uint8_t marker = bytes_[scan_ + 1];
  if (marker == 0xD9) {
    scan_ += 2;
    imageEnds = true;
    return true;
  }
  if (scan_ + 3 >= bytes_.size()) return false;
  const std::size_t length = bytes_[scan_ + 2] * 256u + bytes_[scan_ + 3];
  if (scan_ + 2 + length > bytes_.size()) return false;
  scan_ += 2 + length;
  inCodedData_ = marker == 0xDA;
  return true;
}

std::optional<AccessUnit> AccessUnitSplitter::NextImage() {
  for (;;) {
    if (!inUnit_ && !FindImage()) return std::nullopt;
    bool imageEnds = false;
    if (!PassSegment(imageEnds)) return std::nullopt;
    if (!imageEnds) continue;
    key_ = true;
    inUnit_ = false;
    return TakeUntil(scan_);
  }
}

}  // namespace tvx::tool
