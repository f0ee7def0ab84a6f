// The file logger: appends to one file in the working directory.
// Threads: any that hold its mutex.
#pragma once

#include <fstream>
#include <string>

#include "base/mutex.h"
#include "log/logger.h"

namespace tvx {

class LogImpl : public ILgr {
 public:
  Mutex& GetMutex() override RETURN_CAPABILITY(mutex_) { return mutex_; }
  std::ostream& Stream() override;
  void SetFileName(const std::string& name) override;

 private:
  void OpenForAppending();

  Mutex mutex_;  // held by writers, from outside
  std::ofstream stream_;
  std::string fileName_ = "debugsrvlog.txt";
};

}  // namespace tvx
