#include "mail/notify_file_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "log/host_log.h"

namespace tvx {
namespace fs = boost::filesystem;
namespace {

constexpr std::size_t kBufferSize = 32u << 10;

}  // namespace

NotifyFileStreamImpl::~NotifyFileStreamImpl() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

bool NotifyFileStreamImpl::open(const std::string& path, std::ios::openmode mode) {
  buffered_.reserve(kBufferSize);  // memory first: once there is a file, it is certain to be closed
  close();
  const bool isAppended = (mode & std::ios::app) != 0;
  // Nor would a pipe without a reader be waited for.
  descriptor_ =
      ::open(path.c_str(),
             O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | (isAppended ? O_APPEND : 0),
             S_IRUSR | S_IWUSR);
  struct stat found {};
  failed_ = descriptor_ < 0 || ::fstat(descriptor_, &found) != 0 || !S_ISREG(found.st_mode) ||
            ::fchmod(descriptor_, S_IRUSR | S_IWUSR) != 0 ||
            (!isAppended && ::ftruncate(descriptor_, 0) != 0);
  written_ = isAppended ? found.st_size : 0;
  if (failed_ && descriptor_ >= 0) {
    ::close(descriptor_);
    descriptor_ = -1;
  }
  return good();
}

void NotifyFileStreamImpl::close() {
  if (descriptor_ < 0) {
    failed_ = true;
    return;
  }
  WriteOut(nullptr, 0);
  if (::close(descriptor_) != 0 && errno != EINTR) failed_ = true;
  descriptor_ = -1;
}

NotifyFileStreamImpl& NotifyFileStreamImpl::Append(const char* bytes, std::size_t count) {
  if (bytes == nullptr || descriptor_ < 0) failed_ = true;
  if (failed_) return *this;
  if (count > kBufferSize - buffered_.size()) {
    WriteOut(bytes, count);
  } else {
    buffered_.insert(buffered_.end(), bytes, bytes + count);
  }
  return *this;
}

// What is buffered, and behind it these bytes.
void NotifyFileStreamImpl::WriteOut(const char* bytes, std::size_t count) {
  const std::pair<const char*, std::size_t> pieces[] = {{buffered_.data(), buffered_.size()},
                                                        {bytes, count}};
  bool isFull = false;
  for (auto [next, left] : pieces) {
    while (left > 0 && !isFull) {
      const ssize_t done = ::write(descriptor_, next, left);
      if (done < 0 && errno == EINTR) continue;
      isFull = done <= 0;
      if (isFull) break;
      next += done;
      left -= static_cast<std::size_t>(done);
      written_ += done;
    }
  }
  failed_ |= isFull;
  buffered_.clear();
}

INotifyFileStream& NotifyFileStreamImpl::write(const std::string& text) {
  return Append(text.data(), text.size());
}

INotifyFileStream& NotifyFileStreamImpl::write(const char* text) {
  return Append(text, text == nullptr ? 0 : std::strlen(text));
}

INotifyFileStream& NotifyFileStreamImpl::write(std::int32_t number) {
  return write(std::to_string(number));  // a stream's own way would follow the locale
}

INotifyFileStream& NotifyFileStreamImpl::write(std::uint32_t number) {
  return write(std::to_string(number));
}

std::int32_t NotifyFileStreamImpl::position() {
  return static_cast<std::int32_t>(written_ + static_cast<std::int64_t>(buffered_.size()));
}

std::uint64_t NotifyFileStreamImpl::space(const std::string& path) {
  try {
    return fs::space(path).available;
  } catch (const std::exception& error) {
    HostLog(kModuleId, host_, LogLevel::Information, "Exception while query volume space: %s",
            error.what());
    return std::uint64_t{kFreeSpaceThreshold} + 1;
  }
}

bool NotifyFileStreamImpl::createDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), S_IRWXU) == 0) return true;
  struct stat found {};
  if (errno != EEXIST || ::lstat(path.c_str(), &found) != 0) return false;
  // One of an earlier version may be open to others. Where a link leads is the administrator's.
  constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
  if (S_ISDIR(found.st_mode) && (found.st_mode & kOthers) != 0) ::chmod(path.c_str(), S_IRWXU);
  return ::stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

bool NotifyFileStreamImpl::remove(const std::string& path) {
  // Without memory, as files are removed when there is none. One that is not there is as good.
  return std::remove(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR;
}

}  // namespace tvx
