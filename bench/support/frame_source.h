// The cameras of a host: frames of many streams in turn, pushed into the plug-in's Write.
//
// The plug-in keeps references and looks for headers at the beginning of key frames alone, so the
// buffers need not hold video; a buffer may be handed over again while it is still out, which the plug-in cannot tell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/plugin.h"

namespace tvx::bench {

constexpr std::size_t kFrameBytes = 30 * 1024;
constexpr std::uint32_t kFramesPerGroup = 30;  // a key frame a second

// Payloads, each in a buffer of its own, together far larger than a processor's own caches.
class Payloads {
 public:
  static constexpr std::size_t kCount = 4096;

  Payloads() : bytes_(kCount * kFrameBytes, 1) {}
  unsigned char* At(std::size_t index) { return &bytes_[index % kCount * kFrameBytes]; }

 private:
  std::vector<unsigned char> bytes_;
};

class FrameSource {
 public:
  // Tells the plug-in of its streams. A key frame of one stream comes with those of the others.
  FrameSource(Plugin& plugin, Payloads& payloads, int streams, int sizeLimitMb);

  // Pushes frames until every history has been filled twice over.
  void FillHistories();

  // Pushes the next frame of the next stream.
  void Push() {
    const std::uint32_t stream = pushed_ % streams_;
    const std::uint32_t turn = pushed_ / streams_;
    request_.data = payloads_.At(pushed_);
    request_.addressee = stream + 1;
    request_.frameType = turn % kFramesPerGroup == 0 ? 1 : 0;
    ++pushed_;
    plugin_.Write(request_, result_);
    taken_ += result_.frameAccepted;
  }

  std::uint32_t Pushed() const { return pushed_; }
  std::uint32_t Taken() const { return taken_; }

 private:
  Plugin& plugin_;
  Payloads& payloads_;
  const std::uint32_t streams_;
  const std::uint32_t framesToFill_;
  std::uint32_t pushed_ = 0;
  std::uint32_t taken_ = 0;
  WriteRequest request_{};
  WriteResult result_{};
};

}  // namespace tvx::bench
