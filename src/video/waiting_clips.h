// The clips that wait for their mail, bounded in what they hold: a mail server that does not answer
// must not keep the host from its frame buffers.
//
// Owns:    nothing of a clip; one that goes with its notification need not be told of.
// Threads: no lock of its own; every call is made under the service's intake mutex.
// Errors:  only memory exhaustion, in Add, or what a Ready throws, in LetGoOldest.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "video/clip_tally.h"
#include "video/frame_bin.h"
#include "video/video_email_stream.h"

namespace tvx {

class WaitingClips {
 public:
  // Clips that count what they hold here.
  const std::shared_ptr<ClipTally>& Tally() const { return tally_; }
  std::uint64_t Bytes() const { return tally_->Bytes(); }

  void Add(const std::shared_ptr<CVideoEmailStream>& clip);

  // Somebody reads the clip from now on, so it stays as it is; or it has been let go.
  void Remove(const CVideoEmailStream& clip) noexcept;

  // Lets the oldest clip go. False when there is none.
  bool LetGoOldest(FrameBin& bin);

 private:
  const std::shared_ptr<ClipTally> tally_ = std::make_shared<ClipTally>();
  std::map<std::uint64_t, std::weak_ptr<CVideoEmailStream>> byAge_;
  std::uint64_t added_ = 0;
};

}  // namespace tvx
