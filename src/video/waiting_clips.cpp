#include "video/waiting_clips.h"

namespace tvx {

void WaitingClips::Add(const std::shared_ptr<CVideoEmailStream>& clip) {
  clip->SetAge(++added_);
  byAge_.emplace_hint(byAge_.end(), added_, clip);
}

void WaitingClips::Remove(const CVideoEmailStream& clip) noexcept {
  byAge_.erase(clip.Age());
}

bool WaitingClips::LetGoOldest(FrameBin& bin) {
  while (!byAge_.empty()) {
    const std::shared_ptr<CVideoEmailStream> clip = byAge_.begin()->second.lock();
    byAge_.erase(byAge_.begin());
    if (clip == nullptr) continue;
    clip->LetGo(bin);
    return true;
  }
  return false;
}

}  // namespace tvx
