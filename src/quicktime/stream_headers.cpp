#include "quicktime/stream_headers.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "quicktime/h264_access_unit.h"
#include "quicktime/h264_parameter_sets.h"
#include "quicktime/mpeg4_headers.h"
#include "quicktime/start_code.h"

namespace quicktime {
namespace {

using Known = std::shared_ptr<const StreamHeaders>;

bool AreSame(ByteView a, ByteView b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

// What a set takes the place of: the other one of its kind and number. Nothing for other units.
std::optional<std::uint32_t> SetNumber(ByteView unit) {
  constexpr std::uint32_t kPictureSets = 0x100;
  if (NalType(unit) == nal::kSequenceParameterSet) {
    if (const auto set = ParseSequenceParameters(unit)) return set->id;
  }
  if (NalType(unit) == nal::kPictureParameterSet) {
    if (const auto set = ParsePictureParameters(unit)) return kPictureSets + set->id;
  }
  return std::nullopt;
}

// Walks over the sets in front of the first picture that lie within the bytes as a whole.
class Sets {
 public:
  explicit Sets(ByteView bytes, bool isCutOff = false)
      : units_(bytes), end_(isCutOff ? bytes.end() : nullptr) {}

  bool Next(ByteView& unit) {
    while (units_.Next(unit) && unit.end() != end_) {
      const int type = NalType(unit);
      if (type >= nal::kFirstSlice && type <= nal::kLastSlice) break;
      if (type == nal::kSequenceParameterSet || type == nal::kPictureParameterSet) return true;
    }
    return false;
  }

 private:
  NalUnits units_;
  const std::uint8_t* const end_;
};

void Append(std::vector<std::uint8_t>& bytes, ByteView unit) {
  constexpr std::uint8_t kStartCode[] = {0, 0, 1};
  bytes.insert(bytes.end(), std::begin(kStartCode), std::end(kStartCode));
  bytes.insert(bytes.end(), unit.begin(), unit.end());
}

Known AfterH264(ByteView start, bool isCutOff, const Known& known) {
  const ByteView before = known ? known->Bytes() : ByteView{};
  ByteView unit;
  bool isNew = false;
  for (Sets sets(start, isCutOff); !isNew && sets.Next(unit);) {
    ByteView other;
    Sets others(before);
    isNew = true;
    while (isNew && others.Next(other)) isNew = !AreSame(unit, other);
  }
  if (!isNew) return known;

  std::vector<std::pair<std::uint32_t, ByteView>> newest;
  const auto take = [&](Sets sets) {
    while (sets.Next(unit)) {
      const auto number = SetNumber(unit);
      if (!number) continue;
      const auto same = std::find_if(newest.begin(), newest.end(),
                                     [&](const auto& set) { return set.first == *number; });
      if (same != newest.end()) newest.erase(same);
      newest.emplace_back(*number, unit);
    }
  };
  take(Sets(before));
  take(Sets(start, isCutOff));
  std::vector<std::uint8_t> bytes;
  for (const auto& [number, set] : newest) Append(bytes, set);
  if (bytes.empty() || bytes.size() > StreamHeaders::kMaximumBytes) return known;
  H264ParameterSets sets;
  sets.PutAllOf({bytes.data(), bytes.size()});
  return std::make_shared<StreamHeaders>(std::move(bytes), sets.Complete());
}

Known AfterMpeg4(ByteView start, bool isCutOff, const Known& known) {
  Mpeg4Headers headers;
  if (!FindMpeg4Headers(start, headers)) return known;
  if (isCutOff && headers.bytes.end() == start.end()) return known;
  if (known && AreSame(headers.bytes, known->Bytes())) return known;
  return std::make_shared<StreamHeaders>(
      std::vector<std::uint8_t>(headers.bytes.begin(), headers.bytes.end()), true);
}

}  // namespace

Known StreamHeaders::After(FourCharacterCode code, ByteView frame, const Known& known) {
  // The search for headers ends at once in what is no such video.
  constexpr std::size_t kLongestStart = kStartCodeSize + 1;
  const ByteView head{frame.data, std::min(frame.size, kLongestStart)};
  if (FindStartCode(head.begin(), head.end()) == head.end()) return known;
  const ByteView start{frame.data, std::min(frame.size, kMaximumBytes)};
  const bool isCutOff = start.size < frame.size;
  if (code == kH264Video) return AfterH264(start, isCutOff, known);
  if (code == kMpeg4Video) return AfterMpeg4(start, isCutOff, known);
  return known;
}

}  // namespace quicktime
