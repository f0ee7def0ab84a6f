#include "service/notify_callback.h"

#include <utility>

#include "service/parked_notifications.h"

namespace tvx {

SNOTIFY_CALLBACK::SNOTIFY_CALLBACK(ParkedNotifications& parked,
                                   std::shared_ptr<NotifyWorkItem> item, std::int64_t deadline)
    : parked_(parked), item_(std::move(item)), deadline_(deadline) {}

void SNOTIFY_CALLBACK::Ready() {
  if (!HasOpenClip(*item_)) parked_.MoveToReady(*this);
}

}  // namespace tvx
