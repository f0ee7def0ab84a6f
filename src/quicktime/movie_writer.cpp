#include "quicktime/movie_writer.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "base/clock.h"
#include "quicktime/movie_atoms.h"
#include "quicktime/track_timing.h"

namespace quicktime {
namespace {

// About a second, so that a player reads neither crumbs nor the whole movie at once.
std::uint32_t SamplesPerChunk(double seconds, std::uint32_t frames) {
  if (!(seconds > 1)) return frames;
  return static_cast<std::uint32_t>(std::ceil(frames / seconds));
}

std::uint32_t SecondsSince1904() {
  constexpr std::int64_t kFrom1904To1970 = 2'082'844'800;
  return static_cast<std::uint32_t>(tvx::WallSeconds() + kFrom1904To1970);
}

}  // namespace

int MovieWriter::Open(const std::string& path) {
  track_.reset();
  failed_ = false;
  return file_.Open(path);
}

void MovieWriter::AddVideoTrack(FourCharacterCode code, std::uint32_t width, std::uint32_t height,
                                double durationSeconds, std::uint32_t frameCount,
                                const TextOverlayStyle& /*overlay*/) {
  OrDiscard([&] {
    if (!file_.IsOpen()) throw std::logic_error("A track was added to a movie that is not open");
    if (track_) throw std::logic_error("A movie takes one video track");
    if (frameCount == 0) throw std::logic_error("A movie track needs a frame");
    if (frameCount > kMaximumSamples) throw std::length_error("Too many frames for a movie track");
    const FrameSize size{static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height)};
    track_.emplace(Track{code, size, durationSeconds, frameCount,
                         SampleTable(SamplesPerChunk(durationSeconds, frameCount))});
    track_->samples.Reserve(frameCount);
  });
}

void MovieWriter::UseHeaders(ByteView headers) {
  OrDiscard([&] {
    if (!track_ || track_->framesTaken != 0) throw std::logic_error("Headers behind a sample");
    track_->headers.assign(headers.begin(), headers.end());
  });
}

void MovieWriter::WriteSample(const void* payload, std::size_t length, std::uint32_t flags,
                              std::uint32_t track) {
  OrDiscard([&] {
    if (!track_ || track != 0) throw std::logic_error("A sample for a track that is not there");
    if (track_->framesTaken == track_->frameCount) {
      throw std::logic_error("More samples than the movie track announced");
    }
    if (length > static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max())) {
      throw std::length_error("A sample longer than memory can hold");
    }
    ++track_->framesTaken;
    if (length == 0) return;
    const ByteView frame{static_cast<const std::uint8_t*>(payload), length};
    if (track_->format == nullptr) BeginMedia(frame);
    TakeFrame(frame, (flags & kKeyFrameSample) != 0);
  });
}

void MovieWriter::Finish(double /*holdSeconds*/) {
  if (failed_) throw std::logic_error("A movie that failed cannot be finished");
  if (!file_.IsOpen()) return;
  OrDiscard([&] {
    if (!track_ || track_->framesTaken != track_->frameCount) {
      throw std::logic_error("Fewer samples than the movie track announced");
    }
    EndMedia();
    WriteHeader();
    file_.Commit();
    hasChangingHeaders_ = track_->format->Descriptions() > 1;
    track_.reset();
  });
}

// After an error there is no file, and nothing else works on the object until it is opened again.
template <typename Step>
void MovieWriter::OrDiscard(Step step) {
  try {
    step();
  } catch (...) {
    failed_ = true;
    track_.reset();
    file_.Discard();
    throw;
  }
}

void MovieWriter::BeginMedia(ByteView firstFrame) {
  Track& track = *track_;
  track.format =
      ChooseSampleFormat(track.code, firstFrame, {track.headers.data(), track.headers.size()},
                         headerPlace_ == HeaderPlace::SamplesToo);
  // Without a size players show nothing, and the headers may know it.
  if (!track.size.IsKnown()) track.size = track.format->CodedSize();
  const SampleTable longest =
      SampleTable::Longest(track.frameCount, track.samples.SamplesPerChunk());
  track.headerBytes = UsualHeader(
      {0, track.size, UniformTiming(track.seconds, track.frameCount), *track.format, longest});
  file_.LeaveRoom(track.headerBytes);
  track.sampleStart = track.headerBytes;
}

void MovieWriter::TakeFrame(ByteView frame, bool isKeyFrame) {
  const FrameContent content = track_->format->AppendFrame(frame, file_);
  if (content.isSecondField) return ExtendLastSample();
  track_->startsAtKeyFrame |= isKeyFrame;
  if (content.hasPicture) EndSample(content);
}

void MovieWriter::EndSample(const FrameContent& content) {
  Track& track = *track_;
  const std::uint64_t bytes = file_.Position() - track.sampleStart;
  if (bytes > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("A sample too long for a movie");
  }
  // A player has nowhere to start but at the first sample, whatever it is.
  const bool isSync = track.startsAtKeyFrame || track.samples.Count() == 0;
  track.samples.Add(static_cast<std::uint32_t>(bytes), isSync, content.description);
  track.order.Add(content.place);
  track.sampleStart = file_.Position();
  track.startsAtKeyFrame = false;
}

void MovieWriter::ExtendLastSample() {
  Track& track = *track_;
  const std::uint64_t rest = file_.Position() - track.sampleStart;
  if (rest > std::numeric_limits<std::uint32_t>::max() - track.samples.Sizes().back()) {
    throw std::length_error("A sample too long for a movie");
  }
  if (rest != 0) track.samples.ExtendLast(static_cast<std::uint32_t>(rest));
  track.sampleStart = file_.Position();
}

void MovieWriter::EndMedia() {
  if (track_->samples.Count() == 0) throw std::runtime_error("There is no picture in the movie");
  ExtendLastSample();
}

void MovieWriter::WriteHeader() {
  Track& track = *track_;
  const ByteWriter header = MovieHeader(
      {SecondsSince1904(), track.size, UniformTiming(track.seconds, track.samples.Count()),
       *track.format, track.samples, track.order.Find()},
      track.headerBytes);
  if (header.Size() > track.headerBytes) {
    file_.MoveBack(track.headerBytes, header.Size() - track.headerBytes);
  }
  file_.FillRoom(header.View());
}

}  // namespace quicktime
