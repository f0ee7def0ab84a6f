// What a clip is exported into: a file with one video track that takes coded frames one by one.
//
// Calls come in this order: Open, AddVideoTrack, maybe UseHeaders, WriteSample once a frame, Finish,
// destruction.
//
// Owns:    the file from Open until Finish. A container that is destroyed before leaves no file.
// Threads: one at a time; there is no lock and no state shared between containers.
// Errors:  Open answers with a code. After it every error is an exception derived from
//          std::exception: std::system_error for what the system refuses (full disk, failed
//          close), std::logic_error for calls out of order or beside what was announced,
//          std::runtime_error for frames that make no movie. The file is gone by then, and only
//          Finish and destruction are left to call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "quicktime/byte_view.h"
#include "quicktime/four_character_code.h"

namespace quicktime {

// How text would be laid over the pictures. There is one style yet, the one without any.
struct TextOverlayStyle {};
inline constexpr TextOverlayStyle NoTextOverlayStyle{};

// Flags of a sample.
constexpr std::uint32_t kOtherSample = 0;      // needs the samples before it
constexpr std::uint32_t kKeyFrameSample = 16;  // a player can start here

class ExportContainer {
 public:
  ExportContainer() = default;
  virtual ~ExportContainer() = default;
  ExportContainer(const ExportContainer&) = delete;
  ExportContainer& operator=(const ExportContainer&) = delete;

  // 0, or the errno value that tells why the file cannot be written. A file that is there already
  // is replaced when the movie is finished, not before.
  virtual int Open(const std::string& path) = 0;

  // Width and height in pixels; a file holds the low 16 bits. A duration that is not positive
  // (one frame, or all of one millisecond) gives each frame the time of a usual one. The frame
  // count is binding.
  virtual void AddVideoTrack(FourCharacterCode code, std::uint32_t width, std::uint32_t height,
                             double durationSeconds, std::uint32_t frameCount,
                             const TextOverlayStyle& overlay) = 0;

  // Headers of the track's stream that came before its frames, in the form of the stream: for
  // frames that do not bring them. Before the first sample, if at all; copied.
  virtual void UseHeaders(ByteView headers) = 0;

  // One coded frame in decoding order; the bytes are not needed after the call. Any bytes are
  // taken: what is not video ends as an odd sample or none, never as a fault of this process. The
  // track is the number of the track in order of adding, from 0.
  virtual void WriteSample(const void* payload, std::size_t length, std::uint32_t flags,
                           std::uint32_t track) = 0;

  // Completes the file and gives it its name. The argument is for containers that can hold their
  // last picture longer, in seconds; 0.0 ends the track as announced. Nothing happens when no file
  // is open.
  virtual void Finish(double holdSeconds) = 0;
};

}  // namespace quicktime
