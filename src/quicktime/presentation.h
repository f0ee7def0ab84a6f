// When pictures are shown that are coded in another order.
//
// Standard: QuickTime File Format, "Composition offset atom" ('ctts'). All samples last equally
//           long, so a place in the order of showing is a time; offsets are never negative, which
//           is what version 0 of the atom can say, and an edit skips what they add in front.
// Threads: one at a time: those of the movie writer that owns it.
// Errors:  one picture whose place is not known, or a place that no decoder would wait for (more
//          than kLongestWait pictures away), and all are shown as they are coded.
#pragma once

#include <cstdint>
#include <optional>
#include <tuple>
#include <vector>

namespace quicktime {

// Pictures are shown by ascending place.
struct ShownPlace {
  std::uint32_t run = 0;  // each begins with a picture behind which nothing older is shown
  std::int64_t place = 0;

  friend bool operator<(const ShownPlace& a, const ShownPlace& b) {
    return std::tie(a.run, a.place) < std::tie(b.run, b.place);
  }
};

// In samples.
struct Presentation {
  std::uint32_t lead = 0;              // from where the edit begins
  std::vector<std::uint32_t> offsets;  // of each sample; none where all are shown as they are coded
};

class PresentationOrder {
 public:
  // Twice what the standards' decoders can hold.
  static constexpr std::uint32_t kLongestWait = 32;

  // Of the next sample.
  void Add(const std::optional<ShownPlace>& place);

  Presentation Find() const;

 private:
  bool isKnown_ = true;
  bool isCoded_ = true;  // the order in which pictures are shown is that in which they are coded
  std::vector<ShownPlace> places_;
};

}  // namespace quicktime
