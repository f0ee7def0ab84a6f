// The headers that a stream sent last, remembered for clips that begin without them: some cameras
// send them only when they start.
//
// H.264 parameter sets and the headers of MPEG-4 part 2 are kept as they came, at most
// kMaximumBytes of them; a set takes the place of the one with its number.
// Threads: an object never changes, so any may read it.
// Errors:  only memory exhaustion throws. What is no header, or too long for one, is passed over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "quicktime/byte_view.h"
#include "quicktime/four_character_code.h"

namespace quicktime {

class StreamHeaders {
 public:
  static constexpr std::size_t kMaximumBytes = 4096;

  // The headers after a frame of the stream: the same object as long as nothing changes, which costs
  // no allocation. Null: none yet. Looks at the beginning of the frame only, up to its picture.
  static std::shared_ptr<const StreamHeaders> After(
      FourCharacterCode code, ByteView frame, const std::shared_ptr<const StreamHeaders>& known);

  StreamHeaders(std::vector<std::uint8_t> bytes, bool isComplete)
      : bytes_(std::move(bytes)), isComplete_(isComplete) {}

  ByteView Bytes() const { return {bytes_.data(), bytes_.size()}; }
  bool IsComplete() const { return isComplete_; }  // enough to decode with

 private:
  const std::vector<std::uint8_t> bytes_;
  const bool isComplete_;
};

}  // namespace quicktime
