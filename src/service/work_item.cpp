#include "service/work_item.h"

#include <algorithm>

namespace tvx {

bool HasOpenClip(const NotifyWorkItem& item) {
  return std::any_of(item.videos.begin(), item.videos.end(), [](const AttachmentSource& video) {
    return video.clip != nullptr && !video.clip->Complete();
  });
}

}  // namespace tvx
