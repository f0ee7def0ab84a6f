// Cuts an elementary stream into what a host delivers as one frame: a coded picture with all its
// slices, and the headers in front of it.
//
// Standards: ITU-T H.264, Annex B and 7.4.1.2.3 (a slice whose first macroblock is 0 begins a
//            picture; each field of an interlaced picture is one of its own); ISO/IEC 14496-2 (one
//            VOP); ISO/IEC 10918-1 (one JPEG image).
// Threads:   one at a time.
// Limits:    kMaxUnit bytes for a picture; AccessUnitError beyond.
// Errors:    bytes that belong to no picture, at the beginning or the end, are left out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

#include "simulated_host/camera.h"

namespace tvx::tool {

struct AccessUnit {
  const std::uint8_t* data;  // valid until the splitter is called again
  std::size_t size;
  bool key;  // nothing before it is needed: an IDR picture, an I-VOP, any JPEG image
};

class AccessUnitError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

class AccessUnitSplitter {
 public:
  static constexpr std::size_t kMaxUnit = 32u << 20;

  explicit AccessUnitSplitter(VideoCodec codec) : codec_(codec) {}

  // More of the stream, in pieces of any size.
  void Add(const void* data, std::size_t size);
  // Nothing follows: what has been held back as unfinished is a unit now.
  void End() { ended_ = true; }

  // The next whole unit, or nothing until more has been added.
  std::optional<AccessUnit> Next();

 private:
  std::optional<AccessUnit> NextByStartCodes();
  std::optional<AccessUnit> NextImage();
  bool FindImage();
  bool PassSegment(bool& imageEnds);
  AccessUnit TakeUntil(std::size_t end);

  const VideoCodec codec_;
  std::vector<std::uint8_t> bytes_;
  std::size_t begin_ = 0;     // of the current unit
  std::size_t scan_ = 0;      // everything before has been looked at
  bool inUnit_ = false;       // begin_ is where a unit begins
  bool hasPicture_ = false;   // the current unit holds its picture, or a part of it
  bool key_ = false;          // of the current unit
  bool inCodedData_ = false;  // JPEG: behind a scan's header
  bool ended_ = false;
};

}  // namespace tvx::tool
