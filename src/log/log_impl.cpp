#include "log/log_impl.h"

#include <unistd.h>

#include <memory>

#include "base/immortal.h"

namespace tvx {

std::ostream& LogImpl::Stream() {
  // A file that was removed under an open stream would swallow what is written unseen.
  if (stream_.is_open() && ::access(fileName_.c_str(), F_OK) != 0) stream_.close();
  if (!stream_.is_open()) OpenForAppending();
  // One that was locked or lost its volume is tried once more before the text is lost.
  if (stream_.fail() || stream_.bad()) {
    if (stream_.is_open()) stream_.close();
    OpenForAppending();
  }
  return stream_;
}

void LogImpl::SetFileName(const std::string& name) {
  fileName_ = name;
  if (!stream_.is_open()) return;
  stream_.close();
  if (stream_.fail()) stream_.setstate(std::ios::badbit);
}

void LogImpl::OpenForAppending() {
  stream_.clear();
  stream_.open(fileName_, std::ios::out | std::ios::app);  // sets failbit when it cannot
}

std::shared_ptr<ILgr> GetLogger() {
  // In place and owned by nobody: nothing of it is lost with an unloaded library.
  static Immortal<LogImpl> logger;
  return {std::shared_ptr<ILgr>(), &logger.value};
}

}  // namespace tvx
