#include "quicktime/mpeg4_samples.h"

#include <algorithm>

#include "quicktime/descriptor_scope.h"

namespace quicktime {

std::unique_ptr<Mpeg4Samples> Mpeg4Samples::From(ByteView firstFrame, ByteView knownHeaders) {
  for (const ByteView bytes : {firstFrame, knownHeaders}) {
    Mpeg4Headers headers;
    if (FindMpeg4Headers(bytes, headers)) return std::make_unique<Mpeg4Samples>(headers);
  }
  return nullptr;
}

FrameContent Mpeg4Samples::AppendFrame(ByteView frame, OutputFile& file) {
  file.Append(frame);
  const Mpeg4Picture picture = FindMpeg4Picture(frame);
  FrameContent content;
  content.hasPicture = picture != Mpeg4Picture::None;
  // A B-VOP is shown before the anchor that was coded last and behind the one before that; several
  // in a row keep their order.
  if (picture == Mpeg4Picture::Anchor) ++anchors_;
  content.place = ShownPlace{0, 2 * anchors_ - (picture == Mpeg4Picture::Between ? 1 : 0)};
  return content;
}

void Mpeg4Samples::WriteEntry(ByteWriter& out, std::uint32_t /*number*/,
                              const TrackFacts& facts) const {
  VideoSampleEntry entry(out, MakeFourCharacterCode("mp4v"), "MPEG-4 Video", facts.size);
  WriteElementaryStreamDescriptor(out, facts);
  WritePixelShape(out, pixels_);
}

void Mpeg4Samples::WriteElementaryStreamDescriptor(ByteWriter& out, const TrackFacts& facts) const {
  constexpr std::uint8_t kEsTag = 0x03;
  constexpr std::uint8_t kDecoderConfigTag = 0x04;
  constexpr std::uint8_t kDecoderSpecificInfoTag = 0x05;
  constexpr std::uint8_t kSyncLayerConfigTag = 0x06;
  constexpr std::uint8_t kMpeg4Visual = 0x20;
  constexpr std::uint8_t kVisualStream = 0x04 << 2 | 0x01;  // type 4, not upstream, reserved one
  constexpr std::uint8_t kStoredInFile = 0x02;              // the predefined layer of such files
  constexpr std::uint32_t kLargestU24 = 0xFFFFFF;

  FullAtomScope atom(out, "esds");
  DescriptorScope stream(out, kEsTag);
  out.U16(0);  // number of the stream: the file knows it by its track
  out.U8(0);   // flags and priority
  {
    DescriptorScope config(out, kDecoderConfigTag);
    out.U8(kMpeg4Visual);
    out.U8(kVisualStream);
    out.U24(std::min(facts.largestSample, kLargestU24));  // decoding buffer
    out.U32(facts.highestBitRate);
    out.U32(facts.averageBitRate);
    DescriptorScope info(out, kDecoderSpecificInfoTag);
    out.Bytes({headers_.data(), headers_.size()});
  }
  DescriptorScope layer(out, kSyncLayerConfigTag);
  out.U8(kStoredInFile);
}

}  // namespace quicktime
