// The fields of a source identifier: what an event or a frame came from.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdint>

namespace tvx {

// An unsigned 32-bit pattern; 0 means no source.
struct SourceId {
  std::uint32_t value = 0;

  constexpr std::uint32_t SubChannel() const { return value >> 28; }
  // The device or module part, kept in its place.
  constexpr std::uint32_t DevicePart() const { return value & 0x0FFF0000u; }
  constexpr std::uint32_t Number() const { return (value >> 8) & 0xFFu; }
  constexpr std::uint32_t Index() const { return value & 0xFFu; }

  friend constexpr bool operator==(SourceId a, SourceId b) { return a.value == b.value; }
  friend constexpr bool operator!=(SourceId a, SourceId b) { return a.value != b.value; }
  friend constexpr bool operator<(SourceId a, SourceId b) { return a.value < b.value; }
};

// The device part that source-group identifiers carry; the low 8 bits are the group's number.
constexpr std::uint32_t kSourceGroupPart = 0xA0000;

// Builds an identifier from the numbers of the host's documents. The number field is shifted before
// it is masked to 16 bits, so that its excess does not reach the device part.
constexpr SourceId MakeSourceId(std::uint32_t subChannel, std::uint32_t devicePart,
                                std::uint32_t number, std::uint32_t index) {
  return {(subChannel << 28) | (devicePart & 0x0FFF0000u) | ((number << 8) & 0xFFFFu) |
          (index & 0xFFu)};
}

}  // namespace tvx
