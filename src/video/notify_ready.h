// How a clip tells its notification that it has all the frames it will get.
#pragma once

namespace tvx {

class INotifyReady {
 public:
  virtual ~INotifyReady() = default;

  // Called at most once by each clip, on the thread that completed it and under the service's
  // intake mutex, so it must be short. The clip is complete by then, unless it completed while it
  // was being cut: then the notification does not hold it yet. May throw when memory is exhausted.
  virtual void Ready() = 0;
};

}  // namespace tvx
