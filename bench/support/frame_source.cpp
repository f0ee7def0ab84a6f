#include "support/frame_source.h"

#include <string>

namespace tvx::bench {
namespace {

std::uint32_t FramesOf(int streams, int sizeLimitMb) {
  const std::size_t framesOfOne = static_cast<std::size_t>(sizeLimitMb) * 1048576 / kFrameBytes;
  return static_cast<std::uint32_t>(framesOfOne) * static_cast<std::uint32_t>(streams);
}

}  // namespace

FrameSource::FrameSource(Plugin& plugin, Payloads& payloads, int streams, int sizeLimitMb)
    : plugin_(plugin),
      payloads_(payloads),
      streams_(static_cast<std::uint32_t>(streams)),
      framesToFill_(FramesOf(streams, sizeLimitMb)) {
  plugin.driver.Update(
      ProfilesDocument(1, "EmailSizeLimitMB='" + std::to_string(sizeLimitMb) + "'"));
  plugin.driver.Update(SystemDocumentOf(streams));
  request_.kind = RecordKind::Frame;
  request_.length = kFrameBytes;
}

void FrameSource::FillHistories() {
  for (std::uint32_t i = 0; i < 2 * framesToFill_; ++i) Push();
}

}  // namespace tvx::bench
