// A parked notification: what its clips call when they are complete, and what the tick releases
// when they take too long.
// Threads: the host's Write paths, under the intake mutex.
#pragma once

#include <cstdint>
#include <memory>

#include "service/work_item.h"
#include "video/notify_ready.h"

namespace tvx {

class ParkedNotifications;

// Always held by shared pointer: by the waiting or ready list and by each clip that is still open.
class SNOTIFY_CALLBACK : public INotifyReady {
 public:
  // The list outlives the callback's last use. The deadline is in seconds since 1970: after it the
  // notification goes out with what its clips have.
  SNOTIFY_CALLBACK(ParkedNotifications& parked, std::shared_ptr<NotifyWorkItem> item,
                   std::int64_t deadline);

  // Called by a clip of the item, under the intake mutex. Once no clip of the item is open, the
  // notification is ready.
  void Ready() override;

  const std::shared_ptr<NotifyWorkItem>& Item() const { return item_; }
  std::int64_t Deadline() const { return deadline_; }

 private:
  ParkedNotifications& parked_;
  const std::shared_ptr<NotifyWorkItem> item_;
  const std::int64_t deadline_;
};

}  // namespace tvx
