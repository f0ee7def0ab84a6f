// An atom of a QuickTime file: its length, its four-character type, its content.
//
// Standard: QuickTime File Format, "Atoms". The scope writes the type, and fills in the length when
//           it closes; what is written meanwhile, other atoms among it, is the content. So code
//           nests as the file does and no length is ever worked out by hand.
// Threads: one at a time: those of the movie writer that owns it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "quicktime/byte_writer.h"
#include "quicktime/four_character_code.h"

namespace quicktime {

class AtomScope {
 public:
  AtomScope(ByteWriter& out, FourCharacterCode type) : out_(out), start_(out.Size()) {
    out_.U32(0);
    out_.U32(type);
  }
  AtomScope(ByteWriter& out, const char (&type)[5]) : AtomScope(out, MakeFourCharacterCode(type)) {}
  ~AtomScope() { out_.PatchU32(start_, static_cast<std::uint32_t>(out_.Size() - start_)); }
  AtomScope(const AtomScope&) = delete;
  AtomScope& operator=(const AtomScope&) = delete;

 private:
  ByteWriter& out_;
  const std::size_t start_;
};

// An atom whose content starts with a version (always 0 here: the only one old players read) and
// flags.
class FullAtomScope {
 public:
  FullAtomScope(ByteWriter& out, const char (&type)[5], std::uint32_t flags = 0)
      : atom_(out, type) {
    out.U8(0);
    out.U24(flags);
  }

 private:
  AtomScope atom_;
};

}  // namespace quicktime
