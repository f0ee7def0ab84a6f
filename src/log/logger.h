// The interface of the file logger, which stands beside the host's log.
// Threads: any; a writer holds the logger's mutex.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "base/mutex.h"

namespace tvx {

// Writers lock GetMutex(), write through Stream(), and unlock. What they write is what the file
// receives: nothing is added.
class ILgr {
 public:
  virtual ~ILgr() = default;
  virtual Mutex& GetMutex() = 0;
  // The output stream, opened for appending when it is not open or has failed.
  virtual std::ostream& Stream() = 0;
  // The next Stream opens this file.
  virtual void SetFileName(const std::string& name) = 0;
};

// The logger of this process, made at the first call; it lives as long as the process.
std::shared_ptr<ILgr> GetLogger();

}  // namespace tvx
