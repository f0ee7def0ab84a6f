// A descriptor of MPEG-4 systems: a tag, a length, its content.
//
// Standard: ISO/IEC 14496-1, 8.3.3. Lengths are written in the expanded form of four bytes, which
//           every player reads (some only that one). The scope fills the length in when it closes.
// Threads: one at a time: those of the movie writer that owns it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "quicktime/byte_writer.h"

namespace quicktime {

class DescriptorScope {
 public:
  DescriptorScope(ByteWriter& out, std::uint8_t tag) : out_(out) {
    out_.U8(tag);
    lengthAt_ = out_.Size();
    out_.U32(0);
    contentAt_ = out_.Size();
  }
  ~DescriptorScope() {
    // Seven bits to the byte, and a high bit that says that another byte follows.
    const auto length = static_cast<std::uint32_t>(out_.Size() - contentAt_);
    const std::uint32_t spread = (length & 0x7FU) | (length & 0x3F80U) << 1 |
                                 (length & 0x1FC000U) << 2 | (length & 0xFE00000U) << 3;
    out_.PatchU32(lengthAt_, 0x80808000U | spread);
  }
  DescriptorScope(const DescriptorScope&) = delete;
  DescriptorScope& operator=(const DescriptorScope&) = delete;

 private:
  ByteWriter& out_;
  std::size_t lengthAt_;
  std::size_t contentAt_;
};

}  // namespace quicktime
