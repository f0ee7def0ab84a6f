#include "quicktime/presentation.h"

#include <algorithm>
#include <numeric>

namespace quicktime {

void PresentationOrder::Add(const std::optional<ShownPlace>& place) {
  if (!place) {
    isKnown_ = false;
    places_ = {};
  }
  if (!isKnown_) return;
  if (!places_.empty() && *place < places_.back()) isCoded_ = false;
  places_.push_back(*place);
}

Presentation PresentationOrder::Find() const {
  if (!isKnown_ || isCoded_) return {};
  std::vector<std::uint32_t> shown(places_.size());  // samples in the order of showing
  std::iota(shown.begin(), shown.end(), 0U);
  std::stable_sort(shown.begin(), shown.end(),
                   [this](std::uint32_t a, std::uint32_t b) { return places_[a] < places_[b]; });
  Presentation presentation;
  presentation.offsets.resize(shown.size());
  for (std::uint32_t i = 0; i < shown.size(); ++i) {
    const std::uint32_t early = shown[i] - std::min(shown[i], i);
    if (early > kLongestWait || i - std::min(shown[i], i) > kLongestWait) return {};
    presentation.lead = std::max(presentation.lead, early);
  }
  for (std::uint32_t i = 0; i < shown.size(); ++i) {
    presentation.offsets[shown[i]] = i + presentation.lead - shown[i];
  }
  return presentation;
}

}  // namespace quicktime
